#pragma once

#include <QByteArray>
#include <QString>
#include <QXmlStreamWriter>

#include <initializer_list>

namespace queuectl {

struct Attribute
{
    const char *name;
    QString value;
};

/// Writes a page that browsers read as HTML and that is well-formed XML. Whatever a text holds, it
/// stays text: markup is escaped, control characters, direction marks and characters without width
/// appear by their numbers, and what XML cannot hold is replaced.
class Html
{
public:
    /// Begins the page, which is appended to `page`.
    explicit Html(QByteArray &page);

    void open(const char *element, std::initializer_list<Attribute> attributes = {});
    /// Ends the innermost element that is open, or several.
    void close(int count = 1);
    void text(const QString &text);
    /// An element that never has content, such as `meta`.
    void empty(const char *element, std::initializer_list<Attribute> attributes);
    /// An element that holds this text alone.
    void element(const char *name, const QString &text,
                 std::initializer_list<Attribute> attributes = {});
    /// A text from outside, which takes no part in the direction of the text around it.
    void outside(const QString &text);
    /// A name that no other element of the page has.
    QString newId();

private:
    QXmlStreamWriter writer;
    int lastId = 0;
};

} // namespace queuectl
