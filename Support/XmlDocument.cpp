#include "Support/XmlDocument.h"

#include "Support/XmlContent.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <string_view>

namespace {

// Entities of the text itself are resolved, within the parser's own limits of size, depth and amplification.
constexpr int parserOptions = XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_IGNORE_ENC | XML_PARSE_NOERROR
    | XML_PARSE_NOWARNING | XML_PARSE_COMPACT | XML_PARSE_BIG_LINES;

// The library compares every two attributes of an element. More of them than this are refused beforehand,
// since a text of one megabyte could hold the agent up for a minute.
constexpr int mostAttributes = 128;

// It compares every two values that an attribute is declared to have, too.
constexpr int mostDeclaredValues = 1'000;

// For each element it looks through all the namespaces that its ancestors declare.
constexpr int mostNamespaces = 256;

// It finds a name the more slowly the more different ones there are.
constexpr std::size_t mostBytesOfNames = 50'000;

bool isNameStart(char character) {
    switch (character) {
    case '!':
    case '?':
    case '/':
    case ' ':
    case '\t':
    case '\r':
    case '\n':
    case '<':
    case '>':
    case '=':
    case '"':
    case '\'':
        return false;
    default:
        return true;
    }
}

// Whether a tag or declaration, behind its "<", has no more of a character outside quotes than that. A value
// in quotes cannot hold a "<": whatever stands before it, another begins there.
bool hasFew(char counted, int most, const char *text, const char *end) {
    char quote = '\0';
    for (int count = 0; text != end && *text != '<' && (quote || *text != '>'); ++text) {
        if (quote)
            quote = *text == quote ? '\0' : quote;
        else if (*text == '"' || *text == '\'')
            quote = *text;
        else if (*text == counted && ++count > most)
            return false;
    }
    return true;
}

bool isDeclaredAttribute(const char *text, const char *end) {
    constexpr std::string_view beginning = "!ATTLIST";
    return std::string_view(text, static_cast<std::size_t>(end - text)).substr(0, beginning.size())
        == beginning;
}

// Whether the library can read the text in a time in proportion to its length.
bool hasFewAttributes(const char *text, const char *end) {
    while (const auto *tag
        = static_cast<const char *>(std::memchr(text, '<', static_cast<std::size_t>(end - text)))) {
        text = tag + 1;
        if (text == end)
            break;
        if (isNameStart(*text) && !hasFew('=', mostAttributes, text, end))
            return false;
        if (*text == '!' && isDeclaredAttribute(text, end) && !hasFew('|', mostDeclaredValues, text, end))
            return false;
    }
    return true;
}

/// What a text may make of itself by the declarations it holds. The library's own limits leave ways to grow:
/// entities in attributes and in declarations, and attributes that an element has by declaration.
class Allowance {
public:
    void spend(std::size_t amount) { left_ -= std::min(left_, amount); }
    bool isSpent() const { return left_ == 0; }

private:
    std::size_t left_ = 10'000'000; // bytes
};

// What each use of an entity or of a declared attribute costs beside its length, and each complaint of the
// library about what is well-formed. A name that a text is full of may well be an entity: so some ten
// thousand uses are allowed.
constexpr std::size_t costOfUse = 250;
constexpr std::size_t costOfDeclaration = 10'000;

/// What the library is handed back at each of its calls.
struct Reading {
    XmlContent &content;
    Allowance allowance;
};

xmlParserCtxtPtr asParser(void *context) {
    return static_cast<xmlParserCtxtPtr>(context);
}

// The content of an entity is parsed by a parser of its own, which has this from the first.
Reading &readingOf(void *context) {
    return *static_cast<Reading *>(asParser(context)->_private);
}

void spend(void *context, std::size_t amount) {
    auto &allowance = readingOf(context).allowance;
    allowance.spend(amount);
    if (allowance.isSpent())
        xmlStopParser(asParser(context));
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

void startElement(void *context, const xmlChar *name, const xmlChar *prefix, const xmlChar *, int,
    const xmlChar **, int attributeCount, int byDeclaration, const xmlChar **attributes) {
    // Those by declaration are the last; each is name, prefix, URI, beginning and end of the value.
    for (int index = attributeCount - byDeclaration; index < attributeCount; ++index)
        spend(context,
            costOfUse + static_cast<std::size_t>(attributes[5 * index + 4] - attributes[5 * index + 3]));
    constexpr int slotsOfNamespace = 2; // prefix and URI
    if (asParser(context)->nsNr > slotsOfNamespace * mostNamespaces || readingOf(context).allowance.isSpent())
        xmlStopParser(asParser(context));
    // The name as it is written: one with a prefix is another name.
    if (!asParser(context)->disableSAX)
        readingOf(context).content.beginElement(prefix ? nullptr : reinterpret_cast<const char *>(name));
}

void endElement(void *context, const xmlChar *, const xmlChar *, const xmlChar *) {
    readingOf(context).content.endElement();
}

void characters(void *context, const xmlChar *text, int length) {
    const auto inOnePiece = readingOf(context).content.append(
        reinterpret_cast<const char *>(text), static_cast<std::size_t>(length));
    // As long as the library lets a text of its own tree be.
    if (inOnePiece > XML_MAX_TEXT_LENGTH)
        xmlStopParser(asParser(context));
}

// Nothing of a text goes to standard error. The parser is not stopped here, in the middle of what it does.
void complaint(void *context, xmlErrorPtr) {
    readingOf(context).allowance.spend(costOfUse);
}

void prepare(xmlSAXHandler &handler) {
    handler.getEntity = getEntity;
    handler.getParameterEntity = getParameterEntity;
    handler.attributeDecl = attributeDeclaration;
    handler.startElementNs = startElement;
    handler.endElementNs = endElement;
    handler.characters = characters;
    handler.cdataBlock = characters;
    handler.ignorableWhitespace = characters;
    handler.reference = nullptr;
    handler.comment = nullptr;
    handler.processingInstruction = nullptr;
    // What only a validation would use.
    handler.elementDecl = nullptr;
    handler.notationDecl = nullptr;
    handler.serror = complaint;
}

struct FreeParser {
    void operator()(xmlParserCtxtPtr parser) const { xmlFreeParserCtxt(parser); }
};

/// Of the library's own document only the declarations are filled in.
struct FreeDocument {
    void operator()(xmlDocPtr document) const { xmlFreeDoc(document); }
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

} // namespace

void XmlDocument::FreeNames::operator()(void *names) const {
    xmlDictFree(static_cast<xmlDictPtr>(names));
}

XmlDocument::XmlDocument(std::unique_ptr<XmlContent> content, void *names)
    : names_(names)
    , content_(std::move(content)) { }

XmlDocument::XmlDocument(XmlDocument &&) noexcept = default;
XmlDocument &XmlDocument::operator=(XmlDocument &&) noexcept = default;
XmlDocument::~XmlDocument() = default;

std::optional<XmlDocument> XmlDocument::parse(const QString &text) {
    initialiseParser();
    const auto bytes = text.toUtf8();
    // The library takes a NUL for the end of the text.
    if (bytes.contains('\0'))
        return std::nullopt;
    if (bytes.size() > std::numeric_limits<int>::max() || !hasFewAttributes(bytes.begin(), bytes.end()))
        return std::nullopt;
    const std::unique_ptr<xmlParserCtxt, FreeParser> parser(xmlNewParserCtxt());
    if (!parser)
        return std::nullopt;
    auto content = std::make_unique<XmlContent>(static_cast<std::size_t>(bytes.size()));
    Reading reading { *content, Allowance() };
    parser->_private = &reading;
    xmlDictSetLimit(parser->dict, mostBytesOfNames);
    prepare(*parser->sax);
    // The names of the elements are the parser's, and are kept beyond it.
    xmlDictReference(parser->dict);
    XmlDocument result(std::move(content), parser->dict);
    // Without naming the encoding: named, the library takes some texts past 10 megabytes for too large. Left
    // to find out, it could take only one with zeros in it for another than UTF-8.
    const std::unique_ptr<xmlDoc, FreeDocument> wellFormed(xmlCtxtReadMemory(
        parser.get(), bytes.constData(), static_cast<int>(bytes.size()), nullptr, nullptr, parserOptions));
    // A parser that was stopped hands out what it had by then.
    if (!wellFormed || parser->disableSAX)
        return std::nullopt;
    return result;
}

XmlDocument::Element XmlDocument::root() const {
    return { *content_, XmlContent::document };
}

std::vector<XmlDocument::Element> XmlDocument::Element::all(std::initializer_list<const char *> path) const {
    std::vector<Element> elements;
    content_->visit(index_, path.begin(), path.end(), [this, &elements](std::size_t found) {
        elements.push_back(Element(*content_, found));
        return false;
    });
    return elements;
}

std::optional<QString> XmlDocument::Element::text(std::initializer_list<const char *> path) const {
    std::optional<QString> text;
    content_->visit(index_, path.begin(), path.end(), [this, &text](std::size_t found) {
        text = content_->text(found);
        return true;
    });
    return text;
}
