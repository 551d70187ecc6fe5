#include "tests/tools/queuectl/till.h"

#include "handlers/handlertable.h"
#include "tools/catalogue/catalogue.h"
#include "tools/queuectl/command.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

/// The table of commands, compared with the texts about it in other files.
class TestQueuectlCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void helpOfTheProgram();
    void helpOfEachCommand();
    void usageErrors_data();
    void usageErrors();
    void version();
    void manPage();
    void completionWords();
    void completionCompletes_data();
    void completionCompletes();
    void pageKnowsEachCommand();
    void types();
    void typeWithItsKeys();
    void examplesAreGood();
    void secretsOfEachTypeAreMasked();
    void typesOfUnknownType();

private:
    static QString file(const QString &path);

    std::unique_ptr<Till> till;
};

void TestQueuectlCommands::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
}

QString TestQueuectlCommands::file(const QString &path)
{
    QFile file(QStringLiteral(QUEUE_SOURCE_DIR "/") + path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return QString::fromUtf8(file.readAll());
}

void TestQueuectlCommands::helpOfTheProgram()
{
    const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};
    const CommandResult english = till->run({u"--help"_s});
    const CommandResult translated = till->run({u"--help"_s}, {}, russian);
    QCOMPARE(english.exitCode, ExitCode::Done);
    for (const Command &command : commandTable()) {
        const QString line = u"  "_s + (command.name + u' ' + command.arguments).trimmed();
        QVERIFY2(english.out.contains(line), qPrintable(line));
        QVERIFY2(english.out.contains(QString::fromUtf8(command.english)), command.english);
        QVERIFY2(translated.out.contains(QString::fromUtf8(command.russian)), command.russian);
        QVERIFY(qstrcmp(command.english, command.russian) != 0);
    }
}

void TestQueuectlCommands::helpOfEachCommand()
{
    for (const Command &command : commandTable()) {
        const CommandResult outcome = till->run({command.name, u"--help"_s});
        QCOMPARE(outcome.exitCode, ExitCode::Done);
        for (const Option &option : command.options + commonOptions()) {
            QVERIFY2(outcome.out.contains((u"--"_s + option.name + u' ' + option.value).trimmed()),
                     qPrintable(option.name));
            QVERIFY(qstrcmp(option.english, option.russian) != 0);
        }
        QCOMPARE(till->run({u"help"_s, command.name}).out, outcome.out);
        QVERIFY2(command.example.startsWith(u"queuectl "_s + command.name),
                 qPrintable(command.name));
        QVERIFY2(outcome.out.contains(u"\nExample:\n  %1\n"_s.arg(command.example)),
                 qPrintable(outcome.out));
        // It has as many arguments as the command takes.
        const QStringList words = command.example.split(u' ').mid(2);
        int arguments = 0;
        for (int i = 0; i < words.size(); ++i) {
            const auto isThisOption = [&](const Option &each) {
                return words[i] == u"--"_s + each.name && !each.value.isEmpty();
            };
            if (!words[i].startsWith(u"--"))
                ++arguments;
            else if (std::any_of(command.options.cbegin(), command.options.cend(), isThisOption))
                ++i; // its value
        }
        QVERIFY2(arguments >= command.minimumArguments && arguments <= command.maximumArguments,
                 qPrintable(command.example));
        // It contains only options of this command.
        static const QRegularExpression option(u"--([a-z-]+)"_s);
        auto named = option.globalMatch(command.example);
        while (named.hasNext()) {
            const QString name = named.next().captured(1);
            QVERIFY2(std::any_of(command.options.cbegin(), command.options.cend(),
                                 [&name](const Option &each) { return each.name == name; }),
                     qPrintable(command.example));
        }
    }
}

void TestQueuectlCommands::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nothing") << QStringList{} << u"Usage: queuectl COMMAND"_s;
    QTest::newRow("a typing error") << QStringList{u"statsu"_s} << u"no command 'statsu'"_s;
    QTest::newRow("a similar word") << QStringList{u"statu"_s} << u"did you mean status?"_s;
    QTest::newRow("unknown option")
        << QStringList{u"status"_s, u"--fast"_s} << u"there is no option --fast"_s;
    QTest::newRow("option without its value")
        << QStringList{u"list"_s, u"heineken"_s, u"--limit"_s} << u"an option has no value"_s;
    for (const Command &command : commandTable()) {
        // It ends as a monitoring plugin does (tst_checkcommand).
        if (command.name == u"check")
            continue;
        const QStringList tooMany(command.maximumArguments + 1, u"x"_s);
        QTest::addRow("%s: too many", qPrintable(command.name))
            << QStringList{command.name} + tooMany << u"Usage: queuectl "_s + command.name;
        if (command.minimumArguments > 0)
            QTest::addRow("%s: too few", qPrintable(command.name))
                << QStringList{command.name} << u"Usage: queuectl "_s + command.name;
    }
}

void TestQueuectlCommands::usageErrors()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const CommandResult outcome = till->run(arguments);
    QCOMPARE(outcome.exitCode, ExitCode::Usage);
    QVERIFY2(outcome.err.contains(reason), qPrintable(outcome.err));
    QCOMPARE(outcome.out, QString());
}

void TestQueuectlCommands::version()
{
    QCOMPARE(till->run({u"--version"_s}).out, u"queuectl " QUEUE_VERSION "\n"_s);
}

void TestQueuectlCommands::manPage()
{
    // Roff without its fonts and escapes.
    QString page = file(u"packaging/queuectl.1"_s);
    page.remove(QRegularExpression(u"\\\\f[A-Z]"_s)).replace(u"\\-"_s, u"-"_s).remove(u'"');
    const QString commands = page.section(u".SH COMMANDS"_s, 1).section(u".SH EXIT STATUS"_s, 0, 0);
    const QStringList entries = commands.split(u".TP\n"_s, Qt::SkipEmptyParts);
    QStringList described;
    for (const QString &entry : entries) {
        const QString head = entry.section(u'\n', 0, 0);
        static const QRegularExpression name(u"^\\.BR? (\\w+)"_s);
        const QRegularExpressionMatch match = name.match(head);
        if (!match.hasMatch())
            continue;
        described.append(match.captured(1));
        static const QRegularExpression option(u"--([a-z-]+)"_s);
        QStringList options;
        auto found = option.globalMatch(head);
        while (found.hasNext())
            options.append(found.next().captured(1));
        for (const Command &command : commandTable()) {
            if (command.name != match.captured(1))
                continue;
            QStringList wanted;
            for (const Option &each : command.options)
                wanted.append(each.name);
            QCOMPARE(options, wanted);
        }
    }
    QStringList names;
    for (const Command &command : commandTable())
        names.append(command.name);
    QCOMPARE(described, names);
    for (int code = Done; code <= Failed; ++code)
        QVERIFY(page.contains(u".B %1\n"_s.arg(code)));
}

void TestQueuectlCommands::completionWords()
{
    const QString script = file(u"packaging/queuectl.bash-completion"_s);
    QStringList names;
    for (const Command &command : commandTable())
        names.append(command.name);
    QVERIFY2(script.contains(u"commands='%1'"_s.arg(names.join(u' '))),
             qPrintable(names.join(u' ')));
}

void TestQueuectlCommands::completionCompletes_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("words");
    QTest::newRow("a command") << u"sta"_s << QStringList{u"status"_s, u"start"_s};
    QTest::newRow("a type") << u"list heine"_s << QStringList{u"heineken"_s};
    QTest::newRow("a verdict") << u"history --verdict dr"_s << QStringList{u"dropped"_s};
    QTest::newRow("a time") << u"settle --before ye"_s << QStringList{u"yesterday"_s};
    QTest::newRow("a type to lint") << u"lint f --type heine"_s << QStringList{u"heineken"_s};
    for (const Command &command : commandTable()) {
        QStringList options;
        for (const Option &option : command.options + commonOptions())
            options.append(u"--"_s + option.name);
        QTest::addRow("options of %s", qPrintable(command.name))
            << command.name + u" --"_s << options;
    }
}

void TestQueuectlCommands::completionCompletes()
{
    QFETCH(const QString, line);
    QFETCH(QStringList, words);
    QProcess bash;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, QFileInfo(QStringLiteral(QUEUECTL_PROGRAM)).path() + u':'
                                      + environment.value(u"PATH"_s));
    bash.setProcessEnvironment(environment);
    bash.start(
        u"bash"_s,
        {u"-c"_s,
         u"source \"$1\"; COMP_WORDS=(queuectl $2); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _queuectl; printf '%s\\n' \"${COMPREPLY[@]}\""_s,
         u"test"_s, QStringLiteral(QUEUE_SOURCE_DIR "/packaging/queuectl.bash-completion"), line});
    QVERIFY(bash.waitForFinished());
    QStringList found =
        QString::fromUtf8(bash.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    found.sort();
    words.sort();
    QCOMPARE(found, words);
    QCOMPARE(QString::fromUtf8(bash.readAllStandardError()), QString());
}

void TestQueuectlCommands::pageKnowsEachCommand()
{
    const QString page = file(u"docs/control.md"_s);
    for (const Command &command : commandTable())
        QVERIFY2(page.contains(u"`queuectl %1"_s.arg(command.name)), qPrintable(command.name));
}

void TestQueuectlCommands::types()
{
    QStringList wanted;
    for (const HandlerRow &row : handlerTable())
        wanted.append(QString::fromUtf16(row.type));
    QCOMPARE(wanted.size(), 58);
    QStringList listed;
    for (const QJsonValue &type :
         till->run({u"types"_s, u"--json"_s}).json().value(u"types"_s).toArray())
        listed.append(type.toObject().value(u"type"_s).toString());
    QCOMPARE(listed, wanted);
    QCOMPARE(till->run({u"types"_s, u"--names"_s}).out.trimmed().split(u'\n'), wanted);
}

void TestQueuectlCommands::typeWithItsKeys()
{
    for (const catalogue::Type &type : catalogue::types()) {
        const QJsonObject shown = till->run({u"types"_s, type.name, u"--json"_s}).json();
        QCOMPARE(shown.value(u"type"_s).toString(), type.name);
        QStringList names;
        for (const QJsonValue &key : shown.value(u"keys"_s).toArray())
            names.append(key.toObject().value(u"key"_s).toString());
        QStringList wanted;
        for (const catalogue::Key &key : type.keys)
            wanted.append(key.name);
        QCOMPARE(names, wanted);
        QCOMPARE(shown.value(u"outcomes"_s).toArray().size(), type.outcomes.size());
        QCOMPARE(shown.value(u"example"_s).toObject(), type.example);
        const QString russian =
            till->run({u"types"_s, type.name}, {}, {{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}}).out;
        QVERIFY2(russian.contains(type.aboutRu), qPrintable(type.name));
        QVERIFY2(russian.contains(type.outcomes.first().whenRu), qPrintable(type.name));
    }
}

void TestQueuectlCommands::examplesAreGood()
{
    for (const catalogue::Type &type : catalogue::types()) {
        const QJsonObject row{{u"type"_s, type.name}, {u"body"_s, type.example}};
        const QString file = till->write(u"/row.json"_s, QJsonDocument(row).toJson());
        const QJsonArray findings =
            till->run({u"lint"_s, file, u"--json"_s}).json().value(u"findings"_s).toArray();
        for (const QJsonValue &finding : findings) {
            // The certificates of the examples do not exist.
            const QString text = finding.toObject().value(u"text"_s).toString();
            QVERIFY2(text.contains(u"there is no file"), qPrintable(type.name + u": "_s + text));
        }
    }
}

void TestQueuectlCommands::secretsOfEachTypeAreMasked()
{
    for (const catalogue::Type &type : catalogue::types()) {
        QJsonObject body = type.example;
        QStringList secrets;
        for (const catalogue::Key &key : type.keys) {
            if (!key.secret || key.name.contains(u'.') || key.name.contains(u'*'))
                continue;
            secrets.append(u"hidden-"_s + key.name);
            body.insert(key.name, secrets.last());
        }
        const int id = till->database.put(
            type.name, QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact)));
        const QString shown = till->run({u"show"_s, QString::number(id)}).out;
        const QString plain = till->run({u"show"_s, QString::number(id), u"--secrets"_s}).out;
        for (const QString &secret : std::as_const(secrets)) {
            QVERIFY2(!shown.contains(secret), qPrintable(type.name + u' ' + secret));
            QVERIFY2(plain.contains(secret), qPrintable(type.name + u' ' + secret));
        }
    }
}

void TestQueuectlCommands::typesOfUnknownType()
{
    const CommandResult outcome = till->run({u"types"_s, u"heinekn"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NotFound);
    QVERIFY(outcome.err.contains(u"did you mean heineken?"));
}

QTEST_GUILESS_MAIN(TestQueuectlCommands)
#include "tst_queuectlcommands.moc"
