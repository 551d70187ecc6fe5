#include "tools/queuectl/settingsfiles.h"

#include "shared/core/paths.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/text.h"
#include "tools/settings/settingslist.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

using Severity = SettingFault::Severity;

bool isValidUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString decoded = decoder(bytes);
    return !decoder.hasError() && !decoded.isNull();
}

bool isBoolean(const QString &value)
{
    static const QStringList known = {u"true"_s, u"false"_s, u"yes"_s, u"no"_s,
                                      u"on"_s,   u"off"_s,   u"1"_s,   u"0"_s};
    return known.contains(value.toLower());
}

/// A folder that only the service uses. Other programs of the till have settings in the other
/// folders.
bool isOwnFolder(const QString &file)
{
    return file.startsWith(rootedPath(u"/tallocash/cash/queue/"_s));
}

QString hint(const QString &word, const QStringList &known)
{
    const QString meant = nearest(word, known);
    return meant.isEmpty() ? QString()
                           : text("; did you mean %1?", "; имелось в виду %1?").arg(meant);
}

/// What is wrong with the value of a line, if anything.
void checkValue(const SettingLine &line, const settings::Entry &entry, QList<SettingFault> &faults)
{
    const auto report = [&](Severity severity, const QString &what) {
        faults.append({severity, line.file, line.line,
                       what.arg(line.section, line.key, line.value, entry.defaultText)});
    };
    bool isNumber = false;
    const int number = line.value.toInt(&isNumber);
    if (entry.kind == settings::Kind::Number && !isNumber)
        report(Severity::Error,
               text("%1:%2 = '%3' is not a whole number, the default %4 is used",
                    "%1:%2 = '%3' — не целое число, действует значение по умолчанию %4"));
    else if (entry.kind == settings::Kind::Boolean && !isBoolean(line.value))
        report(Severity::Error,
               text("%1:%2 = '%3' is neither yes nor no, the default %4 is used",
                    "%1:%2 = '%3' — не «да» и не «нет», действует значение по умолчанию %4"));
    else if (entry.kind == settings::Kind::Number && entry.smallest && number < *entry.smallest)
        faults.append(
            {Severity::Warning, line.file, line.line,
             text("%1:%2 = %3 is below the smallest value, %4 is used",
                  "%1:%2 = %3 меньше наименьшего значения, действует %4")
                 .arg(line.section, line.key, line.value, QString::number(*entry.smallest))});
}

void checkLine(const SettingLine &line, QList<SettingFault> &faults)
{
    const auto report = [&](Severity severity, const QString &what) {
        faults.append({severity, line.file, line.line, what});
    };
    if (line.section.isEmpty()) {
        report(Severity::Warning, text("'%1' comes before the first [section] and is not read",
                                       "'%1' стоит до первого [раздела] и не читается")
                                      .arg(line.key));
        return;
    }
    const settings::Section *section = settings::findSection(line.section);
    if (!section) {
        const QString meant = hint(line.section, settings::sectionNames());
        // In shared folders, other programs of the till have their own sections.
        if (isOwnFolder(line.file) || !meant.isEmpty())
            report(Severity::Warning,
                   text("section [%1] is not read%2", "раздел [%1] не читается%2")
                       .arg(line.section, meant));
        return;
    }
    if (section->pattern)
        return;
    const settings::Entry *entry = settings::findEntry(*section, line.key);
    if (!entry) {
        report(Severity::Warning,
               text("%1:%2 is not read%3", "параметр %1:%2 не читается%3")
                   .arg(line.section, line.key, hint(line.key, settings::keys(*section))));
        return;
    }
    checkValue(line, *entry, faults);
}

} // namespace

QStringList settingsFilePaths()
{
    QStringList paths;
    const QList<QDir> folders = settingsFolders();
    for (const QDir &folder : folders) {
        const QStringList names = folder.entryList({u"*.ini"_s},
                                                   QDir::AllEntries | QDir::System | QDir::Hidden
                                                       | QDir::NoDotAndDotDot | QDir::CaseSensitive,
                                                   QDir::Name);
        for (const QString &name : names)
            paths.append(folder.filePath(name));
    }
    const QString atolpay = rootedPath(u"/tallocash/cash/paysystems/atolpay/atolpay.ini"_s);
    if (QFile::exists(atolpay))
        paths.append(atolpay);
    return paths;
}

SettingsFile readSettingsFile(const QString &path)
{
    SettingsFile result{path, {}, {}};
    QFile file(path);
    const QFileInfo info(path);
    if (info.isFile() && !info.isReadable()) {
        // A file with passwords may be readable by the service and root only.
        result.faults.append({Severity::Note, path, 0,
                              text("this account cannot read the file",
                                   "у этой учётной записи нет права читать файл")});
        return result;
    }
    if (info.isDir() || !file.open(QIODevice::ReadOnly)) {
        result.faults.append(
            {Severity::Error, path, 0,
             text("cannot be read: %1", "не читается: %1").arg(file.errorString())});
        return result;
    }
    QByteArray content = file.readAll();
    if (content.startsWith("\xEF\xBB\xBF"))
        content.remove(0, 3);
    QString section;
    int number = 0;
    const QList<QByteArray> lines = content.split('\n');
    for (const QByteArray &raw : lines) {
        ++number;
        const auto fault = [&](const QString &what) {
            result.faults.append({Severity::Error, path, number, what});
        };
        const QByteArray bytes = raw.trimmed();
        if (bytes.isEmpty() || bytes.startsWith(';') || bytes.startsWith('#'))
            continue;
        if (!isValidUtf8(bytes)) {
            fault(text("is not UTF-8, the line is skipped", "не UTF-8, строка пропущена"));
            continue;
        }
        const QString line = QString::fromUtf8(bytes);
        if (line.startsWith(u'[')) {
            const qsizetype end = line.indexOf(u']');
            if (end < 0)
                fault(text("']' is missing, the line is skipped", "нет ']', строка пропущена"));
            else
                section = line.mid(1, end - 1);
            continue;
        }
        qsizetype separator = line.indexOf(u'=');
        if (separator < 0)
            separator = line.indexOf(u':');
        if (separator < 0) {
            fault(text("expected '[section]' or 'key = value', the line is skipped",
                       "ожидается '[раздел]' или 'ключ = значение', строка пропущена"));
            continue;
        }
        result.settings.append({path, number, section, line.left(separator).trimmed(),
                                line.mid(separator + 1).trimmed()});
    }
    return result;
}

QList<SettingFault> checkSettings()
{
    QList<SettingFault> faults;
    const QList<QDir> folders = settingsFolders();
    for (const QDir &folder : folders) {
        if (!QFileInfo(folder.path()).isReadable())
            faults.append({Severity::Note, folder.path(), 0,
                           QFileInfo::exists(folder.path())
                               ? text("this account cannot read the folder",
                                      "у этой учётной записи нет права читать каталог")
                               : text("there is no such folder", "каталога нет")});
    }
    const QStringList paths = settingsFilePaths();
    for (const QString &path : paths) {
        const SettingsFile file = readSettingsFile(path);
        faults += file.faults;
        QString reported;
        for (const SettingLine &line : file.settings) {
            // One finding for an unknown section, not one for each of its keys.
            if (!settings::findSection(line.section) && !line.section.isEmpty()) {
                if (line.section == reported)
                    continue;
                reported = line.section;
            }
            checkLine(line, faults);
        }
    }
    return faults;
}

QString maskedSettings(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression setting(uR"(^(\s*[;#]?\s*)([^=]+?)(\s*[=:]\s*)(.*)$)"_s);
    QStringList result;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = setting.match(line);
        if (!match.hasMatch())
            result.append(maskedText(line));
        else if (isSecretName(match.captured(2)) && !match.captured(4).trimmed().isEmpty())
            result.append(match.captured(1) + match.captured(2) + match.captured(3) + u"***"_s);
        else
            result.append(match.captured(1) + match.captured(2) + match.captured(3)
                          + maskedText(match.captured(4)));
    }
    return result.join(u'\n');
}

} // namespace queuectl
