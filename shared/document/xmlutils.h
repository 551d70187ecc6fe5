#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>
#include <QStringList>

namespace xmlutils {

/// The first element `tag` in document order; null without one.
QDomElement firstElement(const QDomDocument &document, const QString &tag);
/// The same inside `element`.
QDomElement firstElement(const QDomElement &element, const QString &tag);

/// The text of the element number `index` among the elements `tag`, in document order; empty
/// without one.
QString getValueByTag(const QDomDocument &document, const QString &tag, int index);
/// The same inside `element`.
QString getValueByTag(const QDomElement &element, const QString &tag, int index);

/// A new element with this text, not yet inserted into the document.
QDomElement createTextElement(QDomDocument &document, const QString &name, const QString &text);

/// Whether prefixes are namespaces. Replies of most services are read without namespaces; with
/// them, an undeclared prefix is an error.
enum class Prefixes
{
    PartOfTheName,
    Namespaces,
};

/// The size limit for a service's reply and for a document of the till.
constexpr qsizetype maxReplyBytes = 4 * 1024 * 1024;
constexpr qsizetype maxDocumentBytes = 16 * 1024 * 1024;

/// The position of an error in the text, and its reason.
struct ParseError
{
    int line = 0;
    int column = 0;
    QString message;
    /// A limit of the service was exceeded: size, depth, number of elements, or number of
    /// attributes of an element. The log already has a line about it.
    bool isLimit = false;
};

/// Reads a reply, in its declared encoding, for the elements named `tags`. The tree contains the
/// root, the first element of each of these names, and inside each of them again the first element
/// of each name, with their attributes and all text inside. So it needs little memory for any
/// reply; the only valid index is 0.
///
/// The document is empty, and `error` is filled, if the reply is not well formed to its end,
/// declares entities, or exceeds a limit. No external entity is loaded.
QDomDocument parseXml(const QByteArray &bytes, const QStringList &tags, ParseError *error = nullptr,
                      Prefixes prefixes = Prefixes::PartOfTheName);
/// The same for decoded text, with a limit in bytes of UTF-8.
QDomDocument selectXml(const QString &text, const QStringList &tags, qsizetype limit,
                       ParseError *error = nullptr, Prefixes prefixes = Prefixes::PartOfTheName);
/// Parses a whole document of the till for changes. Elements are found by name as written, prefix
/// included. The tree takes up to 250 times the memory of the text; a document that would take more
/// than 64 MiB is refused.
QDomDocument parseXmlText(const QString &text, ParseError *error = nullptr);

/// An attribute to remove from every element of a name; none when the name is empty.
struct DroppedAttribute
{
    QString element = {};
    QString attribute = {};
};

/// Writes a document of the till again with an indent of 1, in UTF-8, without the dropped
/// attributes. Empty if it is not well formed, declares entities, or exceeds a limit. Small
/// documents go through Qt's tree, large ones are written token by token.
QByteArray rewritten(const QString &text, const DroppedAttribute &dropped = {});
/// A text element to add as the last child of the first element `parent`, replacing that element's
/// first child of the same name; none when `parent` is empty.
struct ReplacedChild
{
    QString parent = {};
    QString name = {};
    QString text = {};
};

/// Writes a well-formed document of any size token by token, like rewritten(), and replaces
/// `child`.
QByteArray rewrittenInPieces(const QString &text, const DroppedAttribute &dropped = {},
                             const ReplacedChild &child = {});
/// Whether parseXmlText() accepts the text.
bool fitsATree(const QString &text);

} // namespace xmlutils
