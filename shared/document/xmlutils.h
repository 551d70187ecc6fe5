#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>
#include <QStringList>

namespace xmlutils {

/// The first element `tag` anywhere in the document, in its order; null when there is none.
QDomElement firstElement(const QDomDocument &document, const QString &tag);
/// The same among those inside `element`.
QDomElement firstElement(const QDomElement &element, const QString &tag);

/// The text of the element `tag` at `index` among those of that name anywhere in the document, in
/// its order; empty when there is none.
QString getValueByTag(const QDomDocument &document, const QString &tag, int index);
/// The same among those inside `element`.
QString getValueByTag(const QDomElement &element, const QString &tag, int index);

/// A new element that holds `text`. It has no place in the document yet.
QDomElement createTextElement(QDomDocument &document, const QString &name, const QString &text);

/// What a prefix in a name means: nothing, as most services' replies are read, or a namespace, and
/// then one that no `xmlns` declares is an error.
enum class Prefixes
{
    PartOfTheName,
    Namespaces,
};

/// The largest reply of a service and the largest document of the till that are read.
constexpr qsizetype maxReplyBytes = 4 * 1024 * 1024;
constexpr qsizetype maxDocumentBytes = 16 * 1024 * 1024;

/// Where and why a text is not a document that the service reads.
struct ParseError
{
    int line = 0;
    int column = 0;
    QString message;
    /// It passes a limit of the service's own: its size, its depth, the number of its elements or
    /// of the attributes of one of them. The log has a line about it already.
    bool isLimit = false;
};

/// What a reply says, in the encoding that it declares, read for the elements named `tags`: the
/// tree holds the root, the first element of each of these names, and inside each of them the first
/// of each name again, with their attributes and the whole text inside them. So it takes little
/// memory whatever the reply is, and index 0 is the only one to ask for.
///
/// An empty document, and `error` filled, when the reply is not well formed as a whole, declares
/// entities, or passes a limit. Nothing is ever fetched.
QDomDocument parseXml(const QByteArray &bytes, const QStringList &tags, ParseError *error = nullptr,
                      Prefixes prefixes = Prefixes::PartOfTheName);
/// The same for a text whose encoding no longer matters and which may take `limit` bytes in UTF-8.
QDomDocument selectXml(const QString &text, const QStringList &tags, qsizetype limit,
                       ParseError *error = nullptr, Prefixes prefixes = Prefixes::PartOfTheName);
/// A document of the till as a whole, to be changed. Elements are found by the name as written,
/// prefix included. Its tree takes up to 250 times the memory of its text; one that would take more
/// than 64 MiB is refused.
QDomDocument parseXmlText(const QString &text, ParseError *error = nullptr);

/// An attribute of every element of a name; none when the name is empty.
struct DroppedAttribute
{
    QString element = {};
    QString attribute = {};
};

/// A document of the till written again with an indent of 1, in UTF-8, without the attributes that
/// are to be dropped; empty when it is not well formed, declares entities, or passes a limit. A
/// small one is written by Qt's tree, a large one piece by piece.
QByteArray rewritten(const QString &text, const DroppedAttribute &dropped = {});
/// A text element that becomes the last child of the first element `parent`, in place of that
/// element's first child of this name; none when `parent` is empty.
struct ReplacedChild
{
    QString parent = {};
    QString name = {};
    QString text = {};
};

/// The latter for a document of any size, which has to be well formed.
QByteArray rewrittenInPieces(const QString &text, const DroppedAttribute &dropped = {},
                             const ReplacedChild &child = {});
/// Whether parseXmlText() takes the text.
bool fitsATree(const QString &text);

} // namespace xmlutils
