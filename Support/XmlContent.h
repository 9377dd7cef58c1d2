#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <vector>

/// What is kept of a document: its elements, and their texts one behind the other. It is filled from front to
/// back while the text is parsed. The library's own tree, with its several allocations for each element,
/// takes longer to build and to free than the parsing itself.
class XmlContent {
public:
    using Path = std::initializer_list<const char *>;

    /// The element that holds the root element.
    static constexpr std::size_t document = 0;

    /// @param length  of the whole text in bytes; what is kept of it is hardly ever longer
    explicit XmlContent(std::size_t length) {
        bytes_.reserve(length);
        elements_.emplace_back();
    }

    // --- while the text is parsed ---

    /// @param name  lives as long as this; null for a name with a prefix, which is no name that is asked for
    void beginElement(const char *name) {
        const auto index = static_cast<Index>(elements_.size());
        auto &parent = open_.back();
        auto &link = parent.lastChild == none ? elements_[parent.element].firstChild
                                              : elements_[parent.lastChild].next;
        link = index;
        parent.lastChild = index;
        elements_.push_back({ .name = name });
        open_.push_back({ .element = index });
    }

    void endElement() { open_.pop_back(); }

    /// Appends to the text of the element that is open. Returns how long this piece of it is by now.
    std::size_t append(const char *bytes, std::size_t length) {
        auto &parent = open_.back();
        // A comment between two pieces leaves them one.
        if (parent.lastText == none || texts_[parent.lastText].end != bytes_.size()) {
            const auto index = static_cast<Index>(texts_.size());
            auto &link = parent.lastText == none ? elements_[parent.element].firstText
                                                 : texts_[parent.lastText].next;
            link = index;
            parent.lastText = index;
            texts_.push_back({ .begin = bytes_.size(), .end = bytes_.size() });
        }
        bytes_.append(bytes, length);
        auto &text = texts_[parent.lastText];
        text.end = bytes_.size();
        return text.end - text.begin;
    }

    // --- afterwards ---

    /// Calls `found` with each element that the path reaches, in document order, until it returns true.
    template <class Found>
    bool visit(std::size_t parent, Path::iterator name, Path::iterator end, const Found &found) const {
        for (auto child = elements_[parent].firstChild; child != none; child = elements_[child].next) {
            if (!isNamed(elements_[child], *name))
                continue;
            if (name + 1 == end ? found(child) : visit(child, name + 1, end, found))
                return true;
        }
        return false;
    }

    std::optional<QString> text(std::size_t element) const {
        const auto first = elements_[element].firstText;
        if (first == none)
            return std::nullopt;
        if (texts_[first].next == none)
            return QString::fromUtf8(bytesOf(texts_[first]));
        QByteArray joined;
        for (auto text = first; text != none; text = texts_[text].next)
            joined.append(bytesOf(texts_[text]));
        return QString::fromUtf8(joined);
    }

private:
    using Index = std::uint32_t;
    static constexpr Index none = std::numeric_limits<Index>::max();

    struct Element {
        const char *name = nullptr;
        Index next = none;
        Index firstChild = none;
        Index firstText = none;
    };
    /// Where a piece of text stands among the bytes.
    struct Text {
        std::size_t begin = 0;
        std::size_t end = 0;
        Index next = none;
    };
    struct OpenElement {
        Index element = document;
        Index lastChild = none;
        Index lastText = none;
    };

    static bool isNamed(const Element &element, const char *name) {
        return element.name && std::strcmp(element.name, name) == 0;
    }

    QByteArrayView bytesOf(const Text &text) const {
        return { bytes_.data() + text.begin, static_cast<qsizetype>(text.end - text.begin) };
    }

    std::vector<Element> elements_;
    std::vector<Text> texts_;
    std::string bytes_;
    std::vector<OpenElement> open_ { OpenElement() };
};
