#pragma once

#include <QString>
#include <QStringList>

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <vector>

class XmlContent;

/// A parsed XML document, and the texts of its elements. Nothing outside the text itself is ever read: no
/// file, no network, no external entity or document type. Any thread.
class XmlDocument {
public:
    /// An element of a document; valid as long as the document is.
    class Element {
    public:
        /// The elements reached by a path of child names, in document order.
        std::vector<Element> all(std::initializer_list<const char *> path) const;

        /// The own, direct text of the first element reached by the path (character data and CDATA, blanks
        /// kept). Nothing when there is no such element or it has no text.
        std::optional<QString> text(std::initializer_list<const char *> path) const;

    private:
        friend class XmlDocument;
        Element(const XmlContent &content, std::size_t index)
            : content_(&content)
            , index_(index) { }

        const XmlContent *content_;
        std::size_t index_;
    };

    /// Nothing when the text is not well-formed, or goes past the parser's limits. An encoding that the text
    /// declares is of no account, since the text is decoded already.
    static std::optional<XmlDocument> parse(const QString &text);

    XmlDocument(XmlDocument &&) noexcept;
    XmlDocument &operator=(XmlDocument &&) noexcept;
    ~XmlDocument();

    /// The document itself; the first name of a path below it is the root element's.
    Element root() const;

private:
    struct FreeNames {
        void operator()(void *names) const;
    };

    XmlDocument(std::unique_ptr<XmlContent> content, void *names);

    std::unique_ptr<void, FreeNames> names_;
    std::unique_ptr<XmlContent> content_;
};
