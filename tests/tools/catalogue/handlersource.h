#pragma once

#include <QMap>
#include <QMetaObject>
#include <QString>
#include <QStringList>

/// The sources of one handler class, and the keys that it reads from a message. The sources are
/// searched as text: a key is read where its name is in a call that reads the body.
class HandlerSource
{
public:
    /// The files of the class and the files of handler folders that they include, without those
    /// that all handlers share.
    HandlerSource(const QString &sourceDir, const QString &group, const QString &className);

    bool isValid() const;
    bool contains(const QString &text) const;

    /// The keys at the top level of the body. The value names the kinds of the catalogue that fit
    /// the way of reading; empty: any.
    QMap<QString, QString> readKeys() const;
    /// Seconds for a message without `timeout`.
    int defaultTimeout() const;

    /// The keys that one file reads from a message.
    static QMap<QString, QString> keysIn(const QString &path);
    /// Keys of a record that a whole message is read into.
    static QMap<QString, QString> keysOf(const QMetaObject &record);

private:
    void add(const QString &path);
    /// The rules of the handler's request; empty when the common rules apply.
    QString requestRules() const;

    QString sourceDir;
    QStringList files;
    QString text;
};
