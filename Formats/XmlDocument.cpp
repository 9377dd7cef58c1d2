#include "Formats/XmlDocument.h"

// Expat 2.5 declares its limits on amplification only then.
#define XML_DTD 1 // NOLINT
#include <expat.h>

#include <cstdlib>
#include <memory>

using namespace Formats;

namespace {

constexpr std::size_t maxDepth = 1'000;

// Entities may make any text of a document up to `freeExpansion`, and beyond that twice its own size.
constexpr float maxAmplification = 2.0F;
constexpr unsigned long long freeExpansion = 8 * 1024 * 1024; // bytes

// Expat expands an entity inside an entity by recursion.
constexpr int maxEntities = 1'000;

// Elements and attributes. Each new name makes Expat's tables slower, and each declared attribute is compared
// with those before it and added to the elements of its type.
constexpr std::size_t maxNames = 350'000;

// A block that Expat enlarges. The attributes of a tag, 32 bytes for each, are all in one block before the
// tag is reported, so that the count of names comes too late for a tag that is too long.
constexpr std::size_t maxBlock = 8 * 1024 * 1024; // bytes

constexpr XML_Memory_Handling_Suite boundedMemory { std::malloc,
    [](void *block, std::size_t size) { return size <= maxBlock ? std::realloc(block, size) : nullptr; },
    std::free };

} // namespace

/// Receives the document from Expat.
class XmlDocument::Builder {
public:
    Builder(std::size_t size, const char *encoding)
        : parser_(XML_ParserCreate_MM(encoding, &boundedMemory, nullptr), &XML_ParserFree) {
        constexpr std::size_t bytesOfANode = 16; // in the text of a notice with many entries
        document_.content_.reserve(size);
        document_.nodes_.reserve(size / bytesOfANode + 1);
        document_.nodes_.emplace_back();
        auto *parser = parser_.get();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser, [](void *self, const char *name, const char **) { of(self).begin(name); },
            [](void *self, const char *) { of(self).open_.pop_back(); });
        XML_SetCharacterDataHandler(parser, [](void *self, const char *text, int length) {
            of(self).characters({ text, static_cast<std::size_t>(length) });
        });
        XML_SetStartCdataSectionHandler(parser, [](void *self) { of(self).characters({}); });
        XML_SetEntityDeclHandler(parser,
            [](void *self, const char *, int, const char *, int, const char *, const char *, const char *,
                const char *) { of(self).entityDeclared(); });
        XML_SetAttlistDeclHandler(
            parser, [](void *self, const char *, const char *, const char *, const char *, int) {
                of(self).attributeDeclared();
            });
        XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser, maxAmplification);
        XML_SetBillionLaughsAttackProtectionActivationThreshold(parser, freeExpansion);
    }

    std::optional<XmlDocument> parse(std::string_view text) {
        const auto status = XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
        return status == XML_STATUS_OK ? std::optional(std::move(document_)) : std::nullopt;
    }

private:
    struct OpenElement {
        Index node = 0;
        Index lastChild = 0;
    };

    static Builder &of(void *self) { return *static_cast<Builder *>(self); }

    // A handler may be called once more after this.
    void stop() { XML_StopParser(parser_.get(), XML_FALSE); }

    void begin(std::string_view name) {
        constexpr std::size_t textsOfAnAttribute = 2;
        const auto attributes = static_cast<std::size_t>(XML_GetSpecifiedAttributeCount(parser_.get()));
        addNames(1 + attributes / textsOfAnAttribute + declaredAttributes_);
        append(name, false);
        open_.push_back({ .node = static_cast<Index>(document_.nodes_.size() - 1) });
        if (open_.size() > maxDepth)
            stop();
    }

    // Expat hands a text out in pieces: at line breaks, references and comments.
    void characters(std::string_view text) {
        const auto last = open_.back().lastChild;
        if (last == 0 || !document_.nodes_[last].isText)
            return append(text, true);
        document_.content_.append(text);
        document_.nodes_[last].length += static_cast<Index>(text.size());
    }

    void append(std::string_view content, bool isText) {
        auto &nodes = document_.nodes_;
        auto &parent = open_.back();
        const auto index = static_cast<Index>(nodes.size());
        (parent.lastChild == 0 ? nodes[parent.node].firstChild : nodes[parent.lastChild].next) = index;
        parent.lastChild = index;
        nodes.push_back({ .content = static_cast<Index>(document_.content_.size()),
            .length = static_cast<Index>(content.size()),
            .isText = isText });
        document_.content_.append(content);
    }

    void entityDeclared() {
        if (++entities_ > maxEntities)
            stop();
    }

    void attributeDeclared() { addNames(++declaredAttributes_); }

    void addNames(std::size_t count) {
        names_ += count;
        if (names_ > maxNames)
            stop();
    }

    XmlDocument document_;
    std::vector<OpenElement> open_ { OpenElement() };
    int entities_ = 0;
    std::size_t declaredAttributes_ = 0;
    std::size_t names_ = 0;
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser_;
};

template <class Found>
bool XmlDocument::visit(
    std::size_t parent, Path::iterator name, Path::iterator end, const Found &found) const {
    if (name == end)
        return found(parent);
    for (auto child = nodes_[parent].firstChild; child != 0; child = nodes_[child].next) {
        if (!nodes_[child].isText && contentOf(child) == *name && visit(child, name + 1, end, found))
            return true;
    }
    return false;
}

std::string_view XmlDocument::contentOf(std::size_t node) const {
    return std::string_view(content_).substr(nodes_[node].content, nodes_[node].length);
}

std::optional<std::string> XmlDocument::textOf(std::size_t element) const {
    std::optional<std::string> text;
    for (auto child = nodes_[element].firstChild; child != 0; child = nodes_[child].next) {
        if (nodes_[child].isText)
            (text ? *text : text.emplace()).append(contentOf(child));
    }
    return text;
}

std::optional<XmlDocument> XmlDocument::parse(std::string_view text, const char *encoding) {
    return text.size() <= maxSize ? Builder(text.size(), encoding).parse(text) : std::nullopt;
}

std::string_view XmlDocument::Element::name() const {
    return document_->contentOf(index_);
}

std::vector<XmlDocument::Element> XmlDocument::Element::children() const {
    std::vector<Element> elements;
    const auto &nodes = document_->nodes_;
    for (auto child = nodes[index_].firstChild; child != 0; child = nodes[child].next) {
        if (!nodes[child].isText)
            elements.push_back(Element(*document_, child));
    }
    return elements;
}

std::vector<XmlDocument::Element> XmlDocument::Element::all(Path path) const {
    std::vector<Element> elements;
    document_->visit(index_, path.begin(), path.end(), [this, &elements](std::size_t found) {
        elements.push_back(Element(*document_, found));
        return false;
    });
    return elements;
}

std::optional<std::string> XmlDocument::Element::text(Path path) const {
    std::optional<std::string> text;
    document_->visit(index_, path.begin(), path.end(), [this, &text](std::size_t found) {
        text = document_->textOf(found);
        return true;
    });
    return text;
}
