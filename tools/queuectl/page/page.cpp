#include "tools/queuectl/page/page.h"

#include "tools/queuectl/page/html.h"
#include "tools/queuectl/page/pagesections.h"
#include "tools/queuectl/page/pagestyle.h"
#include "tools/queuectl/text.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

void writeHead(Html &html, const PageValues &page)
{
    html.open("head");
    html.empty("meta", {{"charset", u"utf-8"_s}});
    html.empty("meta", {{"name", u"viewport"_s}, {"content", u"width=device-width"_s}});
    html.empty("meta", {{"name", u"color-scheme"_s}, {"content", u"light dark"_s}});
    // Nothing is loaded, even if a text should get past the escaping.
    html.empty("meta", {{"http-equiv", u"Content-Security-Policy"_s},
                        {"content", u"default-src 'none'; style-src 'unsafe-inline'"_s}});
    html.empty("meta", {{"name", u"referrer"_s}, {"content", u"no-referrer"_s}});
    html.element("title", text("Queue report, %1, %2", "Отчёт об очереди, %1, %2")
                              .arg(page.host, page.scale.end().toString(pageTimeForm)));
    html.element("style", pageStyle());
    html.close();
}

void writeHeader(Html &html, const PageValues &page)
{
    html.open("header");
    html.element("h1", text("Queue report", "Отчёт об очереди"));
    html.open("p", {{"class", u"faint"_s}});
    html.outside(page.host);
    html.text(text(", from %1 to %2 (%3)", ", с %1 по %2 (%3)")
                  .arg(page.scale.begin().toString(pageTimeForm),
                       page.scale.end().toString(pageTimeForm),
                       durationText(page.scale.begin().secsTo(page.scale.end()))));
    html.close(2);
}

void writeTile(Html &html, const QString &title, const QString &value, const QString &note = {},
               const char *tone = "text")
{
    html.open("div");
    html.element("dt", title);
    html.element("dd", value, {{"class", QString::fromLatin1(tone)}});
    if (!note.isEmpty())
        html.element("dd", note, {{"class", u"note"_s}});
    html.close();
}

void writeTiles(Html &html, const PageValues &page)
{
    const QString unknown = u"–"_s;
    const QString notKnown = text("not known", "неизвестно");
    html.open("dl", {{"class", u"tiles"_s}});
    const bool hasRows = page.databaseFault.isEmpty();
    writeTile(html, text("Waiting", "Ждут"), hasRows ? numberText(page.waiting) : unknown,
              !hasRows ? notKnown
              : page.waiting == 0
                  ? text("nothing", "очередь пуста")
                  : text("oldest %1", "старшая %1").arg(durationText(page.oldestSeconds)));
    const bool hasJournal = page.journalFault.isEmpty();
    const auto count = [&](const QList<int> &values) {
        return hasJournal ? numberText(totalOf(values)) : unknown;
    };
    const QString note = hasJournal ? QString() : notKnown;
    writeTile(html, text("Delivered", "Доставлено"), count(page.flow.delivered), note);
    writeTile(html, text("First attempt failed", "Не с первой попытки"), count(page.flow.failed),
              note);
    writeTile(html, text("Dropped", "Снято с доставки"), count(page.flow.dropped), note,
              totalOf(page.flow.dropped) > 0 ? "careful" : "text");
    const auto failing =
        std::count_if(page.types.cbegin(), page.types.cend(),
                      [](const auto &type) { return type.failingSince.isValid(); });
    writeTile(html, text("Types failing now", "Типов с отказами сейчас"),
              hasJournal ? numberText(failing) : unknown, note, failing > 0 ? "bad" : "text");
    html.close();
}

void openItem(Html &html, bool isGood)
{
    html.open("li");
    html.element("span", isGood ? u"✓"_s : u"!"_s,
                 {{"class", isGood ? u"mark good"_s : u"mark bad"_s}});
}

void writeItem(Html &html, bool isGood, const QString &sentence)
{
    openItem(html, isGood);
    html.text(sentence);
    html.close();
}

void writeState(Html &html, const PageValues &page)
{
    openSection(html, text("State", "Состояние"));
    html.open("ul", {{"class", u"marked"_s}});
    writeItem(html, page.hasService,
              page.hasService ? text("The service answers.", "Служба отвечает.")
                              : text("The service does not answer on its port.",
                                     "Служба не отвечает на своём порту."));
    writeItem(html, page.databaseFault.isEmpty(),
              page.databaseFault.isEmpty() ? text("The database can be read.", "База читается.")
                                           : page.databaseFault);
    writeItem(html, page.journalFault.isEmpty(),
              page.journalFault.isEmpty()
                  ? text("The delivery journal can be read.", "Журнал доставки читается.")
                  : page.journalFault);
    if (page.journalBegin.isValid())
        writeItem(html, false,
                  text("The delivery journal begins at %1; what was before is not known.",
                       "Журнал доставки начинается с %1; что было раньше, неизвестно.")
                      .arg(page.journalBegin.toString(pageTimeForm)));
    for (const Concern &concern : page.concerns) {
        openItem(html, false);
        html.outside(concern.type);
        html.text(u": "_s);
        html.text(concern.text);
        html.close();
    }
    html.close();
    writeFurther(html, page.furtherConcerns);
    html.close();
}

void writeSettings(Html &html, const PageValues &page)
{
    openSection(html, text("Settings", "Настройки"));
    if (page.settings.isEmpty())
        writeSentence(html, text("There is no settings file; the defaults hold.",
                                 "Файлов настроек нет; действуют значения по умолчанию."));
    for (const SettingsText &file : page.settings) {
        html.element("h3", file.path);
        html.element("pre", file.text);
    }
    html.close();
}

void writeVersions(Html &html, const PageValues &page)
{
    openSection(html, text("Versions", "Версии"));
    html.element("pre", page.versions.join(u'\n'));
    html.close();
}

} // namespace

QByteArray renderPage(const PageValues &page)
{
    QByteArray result;
    {
        Html html(result);
        html.open("html", {{"lang", isRussian() ? u"ru"_s : u"en"_s}});
        writeHead(html, page);
        html.open("body");
        writeHeader(html, page);
        html.open("main");
        writeTiles(html, page);
        writeState(html, page);
        writeFlow(html, page);
        writeWaiting(html, page);
        writeDestinations(html, page);
        writeDropped(html, page);
        writeSettings(html, page);
        writeVersions(html, page);
        html.close();
        html.open("footer");
        html.element("p",
                     text("Passwords, tokens and card numbers are masked as far as they can be "
                          "told; look through the page before you send it.",
                          "Пароли, ключи и номера карт скрыты, насколько их можно распознать; "
                          "просмотрите страницу перед отправкой."));
        html.close(3);
    }
    return result + '\n';
}

} // namespace queuectl
