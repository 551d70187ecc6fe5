#pragma once

#include <QDomDocument>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QStringView>

class QXmlStreamReader;

namespace xmlutils {

/// Keeps of a document the root, the first element of each of some names in the document, and
/// within each of these the first of each name again, with their attributes and the text inside
/// them.
class XmlSelection
{
public:
    explicit XmlSelection(const QStringList &tags)
        : tags(tags)
    {
    }

    /// Called for each start of an element, each end, and each text, in the order of the document.
    void begin(const QXmlStreamReader &reader);
    void end();
    void text(QStringView part);

    /// What was kept.
    QDomDocument take() const { return document; }

private:
    struct Kept
    {
        QDomElement element;
        /// The names that were kept inside it.
        QSet<QString> seen;
        int depth = 0;
        bool isWanted = false;
    };

    bool isFirst(const QString &name) const;

    QStringList tags;
    QDomDocument document;
    /// Those that are open, from the root on.
    QList<Kept> open;
    /// The names that were kept in the document.
    QSet<QString> seen;
    int depth = 0;
};

} // namespace xmlutils
