#pragma once

#include <QMetaType>
#include <QString>

namespace tr {

/// A text in two languages: Russian for the log, and the operator's language for the screen.
class Tr
{
    Q_GADGET
    Q_PROPERTY(QString ru READ ru)
    Q_PROPERTY(QString ui READ ui)

public:
    Tr() = default;
    /// A text that is the same in both languages.
    explicit Tr(const QString &text);
    /// `key` is the text's key in the application's installed translations.
    Tr(const QString &key, const QString &ru);

    /// The Russian text.
    QString ru() const;
    /// The text in the operator's language; the Russian text if no translation is installed.
    QString ui() const;
    bool isEmpty() const;

    bool operator==(const Tr &other) const = default;

private:
    QString key;
    QString text;
};

} // namespace tr
