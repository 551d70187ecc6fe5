#pragma once

#include <QMetaType>
#include <QString>

namespace tr {

/// A text in two forms: Russian for the log, and the operator's language for the screen.
class Tr
{
    Q_GADGET
    Q_PROPERTY(QString ru READ ru)
    Q_PROPERTY(QString ui READ ui)

public:
    Tr() = default;
    /// A text that is the same in both forms.
    explicit Tr(const QString &text);
    /// `key` names the text in the translations that the application has installed.
    Tr(const QString &key, const QString &ru);

    /// The Russian text.
    QString ru() const;
    /// The text in the operator's language, or the Russian one where no translation is installed.
    QString ui() const;
    bool isEmpty() const;

    bool operator==(const Tr &other) const = default;

private:
    QString key;
    QString text;
};

} // namespace tr
