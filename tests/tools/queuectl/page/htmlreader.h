#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

/// A page as a parser of XML sees it.
struct HtmlPage
{
    /// Why it is not well-formed; empty when it is.
    QString fault;
    /// The names of the elements, in their order.
    QStringList elements;
    /// As in `name=value`, in their order.
    QStringList attributes;
    /// All texts but that of the style.
    QString text;
    QString style;
    /// Images, and those that lack a title or a description.
    int images = 0;
    int imagesWithoutWords = 0;
};

inline HtmlPage readHtml(const QByteArray &bytes)
{
    using namespace Qt::StringLiterals;
    HtmlPage page;
    QXmlStreamReader reader(bytes);
    QStringList open;
    bool hasTitle = false;
    bool hasDescription = false;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            open.append(reader.name().toString());
            page.elements.append(open.last());
            for (const QXmlStreamAttribute &attribute : reader.attributes())
                page.attributes.append(
                    u"%1=%2"_s.arg(attribute.name().toString(), attribute.value().toString()));
            if (open.last() == u"svg") {
                ++page.images;
                hasTitle = hasDescription = false;
            }
            break;
        case QXmlStreamReader::Characters:
            if (open.contains(u"style"_s))
                page.style += reader.text();
            else
                page.text += reader.text();
            if (open.size() > 1 && open[open.size() - 2] == u"svg" && !reader.isWhitespace()) {
                hasTitle = hasTitle || open.last() == u"title";
                hasDescription = hasDescription || open.last() == u"desc";
            }
            break;
        case QXmlStreamReader::EndElement:
            if (open.takeLast() == u"svg" && !(hasTitle && hasDescription))
                ++page.imagesWithoutWords;
            break;
        default:
            break;
        }
    }
    if (reader.hasError())
        page.fault =
            u"%1:%2 %3"_s.arg(QString::number(reader.lineNumber()),
                              QString::number(reader.columnNumber()), reader.errorString());
    return page;
}
