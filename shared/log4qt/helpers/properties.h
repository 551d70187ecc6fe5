#pragma once

#include <QHash>
#include <QString>

class QIODevice;

namespace Log4Qt {

/// The pairs of a properties file: `key = value` or `key: value` lines, `#` and `!` open a comment
/// line, a backslash at the end of a line joins the next one.
class Properties : public QHash<QString, QString>
{
public:
    /// Adds what `device` holds; the text is UTF-8.
    void load(QIODevice *device);

    /// The value, or a null text for a key that is not there.
    QString property(const QString &key) const { return value(key); }
    void setProperty(const QString &key, const QString &value) { insert(key, value); }
};

} // namespace Log4Qt
