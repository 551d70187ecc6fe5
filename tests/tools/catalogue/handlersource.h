#pragma once

#include <QMap>
#include <QMetaObject>
#include <QString>
#include <QStringList>

/// The sources of one handler class, and what they say of the keys that it reads from a message.
/// They are read as text: a key is read where its name stands in a call that reads the body.
class HandlerSource
{
public:
    /// The class's own files and those of the folders of handlers that they include; what all
    /// handlers share is left out.
    HandlerSource(const QString &sourceDir, const QString &group, const QString &className);

    bool isValid() const;
    bool contains(const QString &text) const;

    /// The keys at the top of the body. The value names the kinds of the catalogue that the way of
    /// reading fits; empty: any.
    QMap<QString, QString> readKeys() const;
    /// Seconds for a message without `timeout`.
    int defaultTimeout() const;

    /// The keys that one file reads from a message.
    static QMap<QString, QString> keysIn(const QString &path);
    /// Keys of a record that a whole message is read into.
    static QMap<QString, QString> keysOf(const QMetaObject &record);

private:
    void add(const QString &path);
    /// What a handler says of its request; empty when it is read by the common rules.
    QString requestRules() const;

    QString sourceDir;
    QStringList files;
    QString text;
};
