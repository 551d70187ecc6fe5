#pragma once

#include "shared/core/setting.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

/// All settings of the service, for the tools and the documentation. The texts come from the
/// constants beside the readers.
namespace settings {

enum class Kind
{
    Text,
    Number,
    Boolean,
    List,
};

/// The unit of a number.
enum class Unit
{
    None,
    Seconds,
    Milliseconds,
};

/// One setting. Its key is without the section.
struct Entry
{
    QString key;
    Kind kind = Kind::Text;
    /// As written in a settings file.
    QString defaultText;
    Unit unit = Unit::None;
    /// The smallest value of a number, if it has one.
    std::optional<int> smallest;
    QString about;
};

/// What a section belongs to.
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
    /// A text about the whole section; may be empty.
    QString about;
    QList<Entry> entries;
    /// Set for a section whose keys are names from outside; it has no entries.
    std::optional<SettingPattern> pattern;
};

/// The sections in the order in which people read them.
const QList<Section> &sections();
/// Null for an unknown one.
const Section *findSection(const QString &name);
/// Null for an unknown one.
const Entry *findEntry(const Section &section, const QString &key);

QStringList sectionNames();
QStringList keys(const Section &section);

} // namespace settings
