#include "tools/settings/pages.h"

#include "shared/core/paths.h"
#include "tools/settings/settingslist.h"

using namespace Qt::StringLiterals;

namespace settings {

namespace {

constexpr qsizetype sampleWidth = 100;

const QString sampleIntro =
    uR"(; Settings of `queue`. The commented lines show the defaults. Copy a line that you want to change,
; with its [section], into /tallocash/cash/queue/config/queue.d/local.ini. Files in that folder are
; read last. A change takes effect without a restart unless the comment says "Read at the start".
; Put passwords, keys and tokens into secrets.ini in the same folder: only the service and root can
; read that file.
; (Written by `build/dev/setting-pages sample` from the program's constants.)
)"_s;

const QString pageIntro = uR"(# Settings

<!-- Written by `build/dev/setting-pages markdown > docs/settings.md` from the constants beside the readers. Change them there. -->

For the engineer at the till. After reading it they can find the key for a change and the file that it belongs in.

Settings are read from every `*.ini` file of these folders, in this order, the files of one folder by name. A
later value replaces an earlier one.

%1
Files are UTF-8 text with `[section]` and `key = value` lines; a comment line begins with `;` or `#`. A key that is
not listed here is not read. `queuectl doctor` names unknown keys and wrong values by file and line. A changed file
is noticed without a restart, except for settings that are read at the start. No setting is required. The sample,
`/usr/share/doc/queue/examples/queue.ini.sample`, holds all of them with their defaults, commented out.

Put passwords, keys and tokens into a file that only the service and root can read
([SECURITY.md](../SECURITY.md)).
)"_s;

/// "seconds, at least 1"; empty for an entry without unit and smallest value.
QString range(const Entry &entry)
{
    QStringList parts;
    if (entry.unit == Unit::Seconds)
        parts.append(u"seconds"_s);
    if (entry.unit == Unit::Milliseconds)
        parts.append(u"milliseconds"_s);
    if (entry.smallest)
        parts.append(u"at least %1"_s.arg(*entry.smallest));
    return parts.join(u", "_s);
}

/// `text` as a comment of a settings file, wrapped at sampleWidth.
QString comment(const QString &text)
{
    QString result;
    QString line;
    const QStringList words = text.split(u' ');
    for (const QString &word : words) {
        if (!line.isEmpty() && line.size() + word.size() + 3 > sampleWidth) {
            result += u';' + line + u'\n';
            line.clear();
        }
        line += u' ' + word;
    }
    return result + u';' + line + u'\n';
}

QString sampleEntry(const Entry &entry)
{
    return u";%1 = %2"_s.arg(entry.key, entry.defaultText).trimmed() + u'\n';
}

QString sampleComment(const Entry &entry)
{
    if (entry.unit != Unit::None)
        return comment(u"%1 In %2."_s.arg(entry.about, range(entry)));
    if (entry.smallest)
        return comment(u"%1 At least %2."_s.arg(entry.about, QString::number(*entry.smallest)));
    return comment(entry.about);
}

QString sampleSection(const Section &section)
{
    QString result = u"\n[%1]\n"_s.arg(section.name);
    if (!section.about.isEmpty())
        result += comment(section.about) + u'\n';
    if (section.pattern)
        return result + comment(section.pattern->about.toString())
               + comment(u"One line for each %1, as in"_s.arg(section.pattern->names))
               + comment(section.pattern->example.toString());
    QString former;
    for (const Entry &entry : section.entries) {
        const QString about = sampleComment(entry);
        // Neighbours with the same comment share it.
        if (about != former)
            result += about;
        former = about;
        result += sampleEntry(entry);
    }
    return result;
}

QString cell(QString text)
{
    return text.replace(u'|', u"\\|"_s);
}

QString markdownEntry(const Entry &entry)
{
    QStringList usual;
    if (!entry.defaultText.isEmpty())
        usual.append(u"`%1`"_s.arg(entry.defaultText));
    const QString unit = range(entry);
    if (!unit.isEmpty())
        usual.append(unit);
    return u"| `%1` | %2 | %3 |\n"_s.arg(
        entry.key, cell(usual.join(entry.unit == Unit::None ? u", "_s : u" "_s)),
        cell(entry.about));
}

QString markdownSection(const Section &section)
{
    QString result = u"\n### [%1]\n\n"_s.arg(section.name);
    if (!section.about.isEmpty())
        result += section.about + u"\n\n"_s;
    if (section.pattern)
        return result
               + u"%1 One line for each %2, as in `%3`.\n"_s.arg(
                   section.pattern->about, section.pattern->names, section.pattern->example);
    result += u"| Key | Default | Meaning |\n| --- | --- | --- |\n"_s;
    for (const Entry &entry : section.entries)
        result += markdownEntry(entry);
    return result;
}

QString markdownPart(const QString &heading, Scope scope)
{
    QString result = u"\n## %1\n"_s.arg(heading);
    for (const Section &section : sections()) {
        if (section.scope == scope)
            result += markdownSection(section);
    }
    return result;
}

QString folderList()
{
    QString result;
    int number = 0;
    const QList<QDir> folders = settingsFolders();
    for (const QDir &folder : folders)
        result += u"%1. `%2`\n"_s.arg(QString::number(++number), folder.path());
    return result;
}

} // namespace

QString sampleFile()
{
    QString result = sampleIntro;
    for (const Section &section : sections())
        result += sampleSection(section);
    return result;
}

QString markdownPage()
{
    return pageIntro.arg(folderList()) + markdownPart(u"The service"_s, Scope::Service)
           + markdownPart(u"Message types"_s, Scope::Types);
}

} // namespace settings
