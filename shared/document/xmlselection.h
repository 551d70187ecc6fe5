#pragma once

#include <QDomDocument>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QStringView>

class QXmlStreamReader;

namespace xmlutils {

/// Extracts a small tree from a document: the root, the first element with each given name, and
/// inside each of these again the first element with each name. Attributes and the text inside are
/// kept.
class XmlSelection
{
public:
    explicit XmlSelection(const QStringList &tags)
        : tags(tags)
    {
    }

    /// Called in document order for each start tag, end tag and text.
    void begin(const QXmlStreamReader &reader);
    void end();
    void text(QStringView part);

    /// The extracted tree.
    QDomDocument take() const { return document; }

private:
    struct Kept
    {
        QDomElement element;
        /// Names already found inside it.
        QSet<QString> seen;
        int depth = 0;
        bool isWanted = false;
    };

    bool isFirst(const QString &name) const;

    QStringList tags;
    QDomDocument document;
    /// The open elements, from the root on.
    QList<Kept> open;
    /// Names already found in the document.
    QSet<QString> seen;
    int depth = 0;
};

} // namespace xmlutils
