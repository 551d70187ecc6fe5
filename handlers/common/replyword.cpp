#include "handlers/common/replyword.h"

using namespace Qt::StringLiterals;

QString shownWord(const QString &word)
{
    constexpr qsizetype longestWord = 40;
    if (word.isEmpty())
        return u"не указано"_s;
    return word.size() > longestWord ? word.first(longestWord) + u'…' : word;
}
