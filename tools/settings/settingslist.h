#pragma once

#include "shared/core/setting.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// All settings of the service, for the programs that people use and for the documentation. What is
/// said of each comes from the constant that its reader has.
namespace settings {

enum class Kind
{
    Text,
    Number,
    Boolean,
    List,
};

/// What a number counts.
enum class Unit
{
    None,
    Seconds,
    Milliseconds,
};

/// One setting. The key of its section is not repeated.
struct Entry
{
    QString key;
    Kind kind = Kind::Text;
    /// As a settings file writes it.
    QString defaultText;
    Unit unit = Unit::None;
    /// Of a number that has one.
    std::optional<int> smallest;
    QString about;
};

/// Whom a section concerns.
enum class Scope
{
    /// The service as a whole.
    Service,
    /// Messages of some types.
    Types,
};

struct Section
{
    QString name;
    Scope scope = Scope::Service;
    /// What holds for all of it; may be empty.
    QString about;
    QList<Entry> entries;
    /// Set for a section whose keys are names from outside; it has no entries.
    std::optional<SettingPattern> pattern;
};

/// The sections in the order in which people read them.
const QList<Section> &sections();
/// Null when no reader asks for it.
const Section *findSection(const QString &name);
/// Null when no reader asks for it.
const Entry *findEntry(const Section &section, const QString &key);

QStringList sectionNames();
QStringList keys(const Section &section);

} // namespace settings
