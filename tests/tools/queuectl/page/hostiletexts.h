#pragma once

#include <QString>
#include <QStringList>

/// Texts that a row, a reply or a settings file may hold and that must stay texts on a page.
inline QStringList hostileTexts()
{
    using namespace Qt::StringLiterals;
    return {
        u"<script>alert(1)</script>"_s,
        u"</title></style></svg><img src=x onerror=alert(2)>"_s,
        u"\" onmouseover=\"alert(3)\" x='"_s,
        u"' style='background:url(http://evil.example/x.png)'"_s,
        u"]]> <!-- <![CDATA[ --> &amp; &lt; &#x0; &nbsp;"_s,
        u"<a href=\"https://evil.example/\">click</a>"_s,
        // Turns what follows around, and letters that do so by themselves.
        u"\u202efdp.exe\u202c \u2067\u05d0\u05d1\u05d2 \u0627\u0644\u0639"_s,
        // Control characters, and what XML does not allow at all.
        u"a\u0001b\u0007c\u001b[31md\u007fe\u0085f\u200bg\ufffeh\uffffi"_s,
        QString(QChar(0xd800)) + u"lone halves"_s + QChar(0xdfff),
        u"line one\nline two\r\nline three\tend"_s,
        QString(5000, u'W'),
        QString(700, QChar(0x0418)) + QString(3000, QChar(0x0301)),
    };
}
