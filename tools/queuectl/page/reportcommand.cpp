#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/outputfile.h"
#include "tools/queuectl/page/page.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int usualDays = 7;

} // namespace

Report makeReport(const Call &call)
{
    const QString target = call.value(u"html"_s);
    if (target.isEmpty())
        throw Failure(Usage, text("--html names the file of the page (- is standard output)",
                                  "--html задаёт файл страницы (- — стандартный вывод)"));
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime since = call.has(u"since"_s)
                                ? readTime(u"since"_s, call.value(u"since"_s), DayEnd::First, now)
                                : now.addDays(-usualDays);
    if (since >= now)
        throw Failure(Usage,
                      text("--since '%1' lies in the future", "--since '%1' — время в будущем")
                          .arg(call.value(u"since"_s)));
    const QByteArray html = renderPage(collectPage(since, now));
    Report report;
    if (target == u"-") {
        print(html);
        report.isPrinted = true;
        return report;
    }
    const QString path = QFileInfo(target).absoluteFilePath();
    OutputFile file(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    file.write(html);
    file.commit();
    report.data = {{u"file"_s, path}, {u"bytes"_s, html.size()}, {u"since"_s, jsonTime(since)}};
    report.line(
        text(
            "%1 is made. Passwords, tokens and card numbers in it are masked; look through it before you send it.",
            "Создан %1. Пароли, ключи и номера карт в нём скрыты; просмотрите его перед отправкой.")
            .arg(path));
    return report;
}

} // namespace queuectl
