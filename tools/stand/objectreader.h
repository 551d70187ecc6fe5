#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace stand {

/// Reads one JSON object member by member and knows where it stands, so that every complaint names
/// its place. All operations throw ScenarioError.
class ObjectReader
{
public:
    /// `where` is the object's place for error messages, such as `cardlab.json: scenarios[2]`.
    ObjectReader(const QJsonValue &value, const QString &where);

    bool has(const QString &key);
    /// The member unchanged; undefined when absent.
    QJsonValue value(const QString &key);
    QString text(const QString &key, const QString &defaultValue = QString());
    /// A text that must be there and not be empty.
    QString neededText(const QString &key);
    /// A text that is one of `choices`, the first of which is the default.
    QString choice(const QString &key, const QStringList &choices);
    int number(const QString &key, int defaultValue);
    double seconds(const QString &key);
    bool flag(const QString &key, bool defaultValue = false);
    /// One text or a list of texts.
    QStringList texts(const QString &key);
    /// A text unchanged, or a list of lines, each of which gets a line end.
    QString lines(const QString &key);
    ObjectReader object(const QString &key);
    /// The members of an array; none when it is absent.
    QList<ObjectReader> objects(const QString &key);

    /// The keys of this object, in their order.
    QStringList keys() const;
    /// Throws for the first key that none of the operations above has read.
    void end() const;

    /// The place of a member, for error messages.
    QString place(const QString &key) const;
    [[noreturn]] void complain(const QString &key, const QString &what) const;

private:
    QJsonObject content;
    QString where;
    QSet<QString> asked;
};

} // namespace stand
