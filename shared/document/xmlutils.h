#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>

namespace xmlutils {

/// The text of the element `tag` at `index` among those of that name anywhere in the document, in its
/// order; empty when there is none.
QString getValueByTag(const QDomDocument &document, const QString &tag, int index);
/// The same among those inside `element`.
QString getValueByTag(const QDomElement &element, const QString &tag, int index);

/// A new element that holds `text`. It has no place in the document yet.
QDomElement createTextElement(QDomDocument &document, const QString &name, const QString &text);

/// What a prefix in a name means: nothing, as most services' replies are read, or a namespace, and then one
/// that no `xmlns` declares is an error.
enum class Prefixes
{
    PartOfTheName,
    Namespaces,
};

/// Where and why a text is not a document that the service reads.
struct ParseError
{
    int line = 0;
    int column = 0;
    QString message;
};

/// The document in `bytes`, in the encoding that it declares. An empty document, and `error` filled,
/// when it is not well formed as a whole, declares entities, is larger than 512 KiB, or nests deeper than
/// any service's.
/// Nothing is ever fetched.
QDomDocument parseXml(const QByteArray &bytes, ParseError *error = nullptr);
/// The same for a text whose encoding no longer matters. Elements are found by the name as written, prefix
/// included, whatever `prefixes` says.
QDomDocument parseXmlText(const QString &text, ParseError *error = nullptr,
                          Prefixes prefixes = Prefixes::PartOfTheName);

} // namespace xmlutils
