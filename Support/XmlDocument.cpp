#include "Support/XmlDocument.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>

namespace {

// Entities of the text itself are resolved, within the parser's own limits of size, depth and amplification.
constexpr int parserOptions = XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_IGNORE_ENC | XML_PARSE_NOERROR
    | XML_PARSE_NOWARNING | XML_PARSE_COMPACT | XML_PARSE_BIG_LINES;

// The library compares every two attributes of an element. More of them than this are refused beforehand,
// since a text of one megabyte could hold the agent up for a minute.
constexpr int mostAttributes = 128;

bool isNameStart(char character) {
    return !std::strchr("!?/ \t\r\n<>=\"'", character);
}

// An attribute's value cannot hold a "<": whatever stands before it, a tag begins there.
bool hasFewAttributes(const char *text, const char *end) {
    while (const auto *tag
        = static_cast<const char *>(std::memchr(text, '<', static_cast<std::size_t>(end - text)))) {
        text = tag + 1;
        if (text == end || !isNameStart(*text))
            continue;
        char quote = '\0';
        for (int attributes = 0; text != end && *text != '<' && (quote || *text != '>'); ++text) {
            if (quote)
                quote = *text == quote ? '\0' : quote;
            else if (*text == '"' || *text == '\'')
                quote = *text;
            else if (*text == '=' && ++attributes > mostAttributes)
                return false;
        }
    }
    return true;
}

/// What a text may make of itself by the declarations it holds. The library's own limits leave ways to grow:
/// entities in attributes and in declarations, and attributes that an element has by declaration.
class Allowance {
public:
    void spend(xmlParserCtxtPtr parser, std::size_t amount) {
        left_ -= std::min(left_, amount);
        if (isSpent())
            xmlStopParser(parser);
    }
    bool isSpent() const { return left_ == 0; }

private:
    std::size_t left_ = 10'000'000; // bytes
};

// What each use of an entity or of a declared attribute costs beside its length, and each declaration.
constexpr std::size_t costOfUse = 5'000;
constexpr std::size_t costOfDeclaration = 10'000;

xmlParserCtxtPtr asParser(void *context) {
    return static_cast<xmlParserCtxtPtr>(context);
}

void spend(void *context, std::size_t amount) {
    static_cast<Allowance *>(asParser(context)->_private)->spend(asParser(context), amount);
}

xmlEntityPtr usedEntity(void *context, xmlEntityPtr entity) {
    if (!entity)
        return nullptr;
    const auto length = static_cast<std::size_t>(std::max(entity->length, 0));
    spend(context, length + costOfUse);
    const auto *content = reinterpret_cast<const char *>(entity->content);
    if (content && !hasFewAttributes(content, content + length))
        xmlStopParser(asParser(context));
    return asParser(context)->disableSAX ? nullptr : entity;
}

xmlEntityPtr getEntity(void *context, const xmlChar *name) {
    return usedEntity(context, xmlSAX2GetEntity(context, name));
}

xmlEntityPtr getParameterEntity(void *context, const xmlChar *name) {
    return usedEntity(context, xmlSAX2GetParameterEntity(context, name));
}

void attributeDeclaration(void *context, const xmlChar *element, const xmlChar *name, int type, int kind,
    const xmlChar *value, xmlEnumerationPtr values) {
    spend(context, costOfDeclaration);
    xmlSAX2AttributeDecl(context, element, name, type, kind, value, values);
}

void startElement(void *context, const xmlChar *name, const xmlChar *prefix, const xmlChar *uri,
    int namespaceCount, const xmlChar **namespaces, int attributeCount, int byDeclaration,
    const xmlChar **attributes) {
    // Those by declaration are the last; each is name, prefix, URI, beginning and end of the value.
    for (int index = attributeCount - byDeclaration; index < attributeCount; ++index)
        spend(context,
            costOfUse + static_cast<std::size_t>(attributes[5 * index + 4] - attributes[5 * index + 3]));
    if (!asParser(context)->disableSAX)
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, attributeCount,
            byDeclaration, attributes);
}

struct FreeParser {
    void operator()(xmlParserCtxtPtr parser) const { xmlFreeParserCtxt(parser); }
};

xmlParserInputPtr refuseExternalEntity(const char *, const char *, xmlParserCtxtPtr) {
    return nullptr;
}

void initialiseParser() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlSetExternalEntityLoader(refuseExternalEntity);
    });
}

const xmlNode *asNode(const void *node) {
    return static_cast<const xmlNode *>(node);
}

// The name as it is written: one with a prefix is another name.
bool isElement(const xmlNode *node, const char *name) {
    return node->type == XML_ELEMENT_NODE && (!node->ns || !node->ns->prefix)
        && std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0;
}

template <class Visit>
void visit(const xmlNode *parent, const char *const *name, const char *const *end, const Visit &found) {
    for (const auto *child = parent->children; child; child = child->next) {
        if (!isElement(child, *name))
            continue;
        if (name + 1 == end)
            found(child);
        else
            visit(child, name + 1, end, found);
    }
}

std::optional<QString> directText(const xmlNode *element) {
    QByteArray bytes;
    bool hasText = false;
    for (const auto *child = element->children; child; child = child->next) {
        if (child->type != XML_TEXT_NODE && child->type != XML_CDATA_SECTION_NODE)
            continue;
        hasText = true;
        if (child->content)
            bytes.append(reinterpret_cast<const char *>(child->content));
    }
    return hasText ? std::optional(QString::fromUtf8(bytes)) : std::nullopt;
}

} // namespace

void XmlDocument::Free::operator()(void *document) const {
    xmlFreeDoc(static_cast<xmlDocPtr>(document));
}

XmlDocument::XmlDocument(XmlDocument &&) noexcept = default;
XmlDocument &XmlDocument::operator=(XmlDocument &&) noexcept = default;
XmlDocument::~XmlDocument() = default;

std::optional<XmlDocument> XmlDocument::parse(const QString &text) {
    initialiseParser();
    const auto bytes = text.toUtf8();
    // The library takes a NUL for the end of the text.
    if (bytes.contains('\0'))
        return std::nullopt;
    if (bytes.size() > std::numeric_limits<int>::max() || bytes.contains('\0')
        || !hasFewAttributes(bytes.begin(), bytes.end()))
        return std::nullopt;
    const std::unique_ptr<xmlParserCtxt, FreeParser> parser(xmlNewParserCtxt());
    if (!parser)
        return std::nullopt;
    Allowance allowance;
    parser->_private = &allowance;
    parser->sax->getEntity = getEntity;
    parser->sax->getParameterEntity = getParameterEntity;
    parser->sax->attributeDecl = attributeDeclaration;
    parser->sax->startElementNs = startElement;
    // Without naming the encoding: named, the library takes some texts past 10 megabytes for too large. Left
    // to find out, it could take only one with zeros in it for another than UTF-8.
    auto *document = xmlCtxtReadMemory(
        parser.get(), bytes.constData(), static_cast<int>(bytes.size()), nullptr, nullptr, parserOptions);
    if (!document)
        return std::nullopt;
    XmlDocument result(document);
    // A parser that was stopped hands out what it had by then.
    if (parser->disableSAX)
        return std::nullopt;
    return result;
}

XmlDocument::Element XmlDocument::root() const {
    return Element(document_.get());
}

std::vector<XmlDocument::Element> XmlDocument::Element::all(std::initializer_list<const char *> path) const {
    std::vector<Element> elements;
    visit(asNode(node_), path.begin(), path.end(),
        [&elements](const xmlNode *node) { elements.push_back(Element(node)); });
    return elements;
}

std::optional<QString> XmlDocument::Element::text(std::initializer_list<const char *> path) const {
    const auto elements = all(path);
    return elements.empty() ? std::nullopt : directText(asNode(elements.front().node_));
}
