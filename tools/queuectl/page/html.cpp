#include "tools/queuectl/page/html.h"

#include "shared/text/escaping.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString visible(const QString &text)
{
    // The way over UTF-8 replaces halves of surrogate pairs, on which the writer would fail.
    QString result = escaping::escaped(QString::fromUtf8(text.toUtf8()), escaping::Newlines::Kept);
    // XML forbids these two, which escaping leaves.
    for (QChar &letter : result) {
        if (letter.unicode() >= 0xfffe)
            letter = QChar::ReplacementCharacter;
    }
    return result;
}

} // namespace

Html::Html(QByteArray &page)
    : writer(&page)
{
    writer.writeDTD(u"<!DOCTYPE html>"_s);
}

void Html::open(const char *element, std::initializer_list<Attribute> attributes)
{
    // A line for each element would put blanks between words.
    static const QByteArrayList blocks{"section", "div",     "table", "tr",
                                       "svg",     "details", "p",     "h2"};
    if (blocks.contains(element))
        writer.writeCharacters(u"\n"_s);
    writer.writeStartElement(QString::fromLatin1(element));
    for (const auto &[name, value] : attributes)
        writer.writeAttribute(QString::fromLatin1(name), visible(value));
}

void Html::close(int count)
{
    for (; count > 0; --count) {
        // An element without content would be written as one tag, which HTML takes for its
        // beginning alone.
        writer.writeCharacters(QString());
        writer.writeEndElement();
    }
}

void Html::text(const QString &text)
{
    writer.writeCharacters(visible(text));
    Q_ASSERT(!writer.hasError());
}

void Html::empty(const char *element, std::initializer_list<Attribute> attributes)
{
    writer.writeEmptyElement(QString::fromLatin1(element));
    for (const auto &[name, value] : attributes)
        writer.writeAttribute(QString::fromLatin1(name), visible(value));
}

void Html::element(const char *name, const QString &text,
                   std::initializer_list<Attribute> attributes)
{
    open(name, attributes);
    Html::text(text);
    close();
}

void Html::outside(const QString &text)
{
    element("bdi", text);
}

QString Html::newId()
{
    return u"i%1"_s.arg(++lastId);
}

} // namespace queuectl
