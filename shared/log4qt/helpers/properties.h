#pragma once

#include <QHash>
#include <QString>

class QIODevice;

namespace Log4Qt {

/// The pairs of a properties file: `key = value` or `key: value` lines. `#` and `!` begin a comment
/// line; a backslash at the end of a line joins it with the next one.
class Properties : public QHash<QString, QString>
{
public:
    /// Adds the pairs in `device`, UTF-8 text.
    void load(QIODevice *device);

    /// The value; null for an unknown key.
    QString property(const QString &key) const { return value(key); }
    void setProperty(const QString &key, const QString &value) { insert(key, value); }
};

} // namespace Log4Qt
