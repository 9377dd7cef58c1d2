#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Formats {

/// A parsed XML document: its elements and their texts. Nothing outside the text is ever read: no file, no
/// network, no external entity or document type. Any thread.
class XmlDocument {
public:
    /// Names of elements, each a child of the one before; the empty path is the element itself. A prefix is
    /// part of a name.
    using Path = std::initializer_list<std::string_view>;

    /// Larger texts are refused.
    static constexpr std::size_t maxSize = 16 * 1024 * 1024; // bytes

    /// An element of a document; valid as long as the document is and stays in its place.
    class Element {
    public:
        std::string_view name() const;

        std::vector<Element> children() const;

        /// Every element that the path reaches, in document order.
        std::vector<Element> all(Path path) const;

        /// The own, direct text of the first element that the path reaches: character data and CDATA, blanks
        /// kept. Nothing when there is no such element or it has no text; an empty CDATA section is a text.
        std::optional<std::string> text(Path path) const;

    private:
        friend class XmlDocument;
        Element(const XmlDocument &document, std::size_t index)
            : document_(&document)
            , index_(index) { }

        const XmlDocument *document_;
        std::size_t index_;
    };

    /// Nothing when the text is not well-formed or goes beyond a limit: of its size, depth, elements and
    /// attributes, declared entities, or Expat's of amplification.
    /// @param encoding  of the text, whatever it declares; null for the one that it declares
    static std::optional<XmlDocument> parse(std::string_view text, const char *encoding = "UTF-8");

    /// The document itself; the first name of a path below it is the root element's.
    Element root() const { return { *this, 0 }; }

private:
    class Builder;

    using Index = std::uint32_t;

    /// An element or a piece of text. The first is the document; as a link 0 is none.
    struct Node {
        Index content = 0; ///< where its name or text begins in `content_`
        Index length = 0;
        Index next = 0;
        Index firstChild = 0;
        bool isText = false;
    };

    template <class Found>
    bool visit(std::size_t parent, Path::iterator name, Path::iterator end, const Found &found) const;
    std::string_view contentOf(std::size_t node) const;
    std::optional<std::string> textOf(std::size_t element) const;

    std::vector<Node> nodes_;
    std::string content_;
};

} // namespace Formats
