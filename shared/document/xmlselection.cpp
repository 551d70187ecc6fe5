#include "shared/document/xmlselection.h"

#include <QXmlStreamReader>

#include <algorithm>

namespace xmlutils {

void XmlSelection::begin(const QXmlStreamReader &reader)
{
    ++depth;
    const QString name = reader.qualifiedName().toString();
    const bool isRoot = depth == 1;
    const bool isWanted = tags.contains(name);
    if (!isRoot && !(isWanted && isFirst(name)))
        return;
    QDomElement element = document.createElement(name);
    const QXmlStreamAttributes attributes = reader.attributes();
    for (const QXmlStreamAttribute &attribute : attributes)
        element.setAttribute(attribute.qualifiedName().toString(), attribute.value().toString());
    if (isRoot)
        document.appendChild(element);
    else
        open.last().element.appendChild(element);
    if (isWanted) {
        seen.insert(name);
        for (Kept &kept : open)
            kept.seen.insert(name);
    }
    open.append({element, {}, depth, isWanted});
}

void XmlSelection::end()
{
    if (open.last().depth == depth)
        open.removeLast();
    --depth;
}

void XmlSelection::text(QStringView part)
{
    // Without this the text of an unselected root would be that of the whole document.
    const bool isInside = std::ranges::any_of(open, &Kept::isWanted);
    if (!isInside)
        return;
    QDomText last = open.last().element.lastChild().toText();
    if (last.isNull())
        open.last().element.appendChild(document.createTextNode(part.toString()));
    else
        last.appendData(part.toString());
}

bool XmlSelection::isFirst(const QString &name) const
{
    return !seen.contains(name) || std::ranges::any_of(open, [&name](const Kept &kept) {
        return !kept.seen.contains(name);
    });
}

} // namespace xmlutils
