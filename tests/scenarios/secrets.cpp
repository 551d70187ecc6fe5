#include "tests/scenarios/secrets.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

/// Names of members that only the till and the outside service may know.
bool isSecretName(const QString &name)
{
    static const QRegularExpression secret(
        u"pass(wd|word|phrase)?$|^pwd$|secret|token|api-?key|^key$|authorization|^auth|cookie|^pin$|signature|msgsign"_s,
        QRegularExpression::CaseInsensitiveOption);
    // Names of operations and of their settings.
    static const QRegularExpression harmless(u"operation$|^authenticationTicketType$|url$|path$"_s,
                                             QRegularExpression::CaseInsensitiveOption);
    return secret.match(name).hasMatch() && !harmless.match(name).hasMatch();
}

/// Shorter texts are in every log by chance.
constexpr qsizetype minLength = 4;

bool isWord(QChar c)
{
    return c.isLetterOrNumber() || c == u'_';
}

/// Whether the text contains the secret, not as part of a longer word.
bool holds(const QString &text, const QString &secret)
{
    for (qsizetype at = text.indexOf(secret); at >= 0; at = text.indexOf(secret, at + 1)) {
        const qsizetype end = at + secret.size();
        const bool beginsWord = at == 0 || !isWord(text[at - 1]) || !isWord(secret.front());
        const bool endsWord = end == text.size() || !isWord(text[end]) || !isWord(secret.back());
        if (beginsWord && endsWord)
            return true;
    }
    return false;
}

} // namespace

QList<SecretPlace> secretPlaces()
{
    return {
        {u"^INFO \\[[^\\]]+\\] Обработка сообщения: (\\{.*\\})$"_s,
         u"Each delivery is announced with the body of its row, which the support needs to repeat it by hand."_s},
        {u"^INFO \\[(?:excisemark|markdown|onlinecheck|partialreservation|dssl)\\] Обработка сообщения:\n(\\{.*\\})\\s*$"_s,
         u"The same by the types that choose among their messages, in lines."_s},
        {u"^ERROR \\[dao\\] Не удалось получить сообщение из БД: .*?сообщение = '(.*)'$"_s,
         u"A row that holds no JSON is shown as it is."_s},
        {u"^DEBUG \\[[^\\]]+\\] (?:Запрос|Ответ).*?; тело: (.*)$"_s,
         u"Debug, which a till does not log by default: what an exchange carried in its bodies."_s},
        {u"^WARN \\[rsbsbp\\] Подменяем подпись\n(.*)$"_s,
         u"The signature of one request, before and after its mending; it opens nothing."_s},
    };
}

Secrets::Secrets(const stand::Scenario &scenario)
{
    for (const stand::QueuedMessage &message : scenario.messages)
        takeFromMessage(message);
    for (const stand::Step &step : scenario.steps) {
        takeFromMessage(step.message);
        for (const QString &file : step.files)
            takeFromText(file);
    }
    for (const auto &section : scenario.settings) {
        for (auto setting = section.cbegin(); setting != section.cend(); ++setting)
            takeNamed(setting.key(), setting.value());
    }
    for (const QString &file : scenario.files)
        takeFromText(file);
    for (const QString &password : scenario.certificates)
        take(password);
    for (auto it = scenario.environment.cbegin(); it != scenario.environment.cend(); ++it)
        takeNamed(it.key(), it.value());
    for (const rig::PeerScript &peer : scenario.peers) {
        for (const rig::Exchange &exchange : peer.exchanges) {
            const auto sent = exchange.headers.value_or(QMap<QString, QString>());
            for (auto header = sent.cbegin(); header != sent.cend(); ++header)
                takeNamed(header.key(), header.value());
            takeFromJson(exchange.body, QString());
            const auto &answered = exchange.reply.headers;
            for (auto header = answered.cbegin(); header != answered.cend(); ++header)
                takeNamed(header.key(), header.value());
            takeFromText(QString::fromUtf8(exchange.reply.body));
        }
    }
}

QStringList Secrets::leaks(const QList<rig::LogRecord> &log) const
{
    static const QList<QRegularExpression> places = [] {
        QList<QRegularExpression> result;
        for (const SecretPlace &place : secretPlaces())
            result.append(
                QRegularExpression(place.record, QRegularExpression::DotMatchesEverythingOption));
        return result;
    }();
    QStringList result;
    for (const rig::LogRecord &record : log) {
        QString line = record.line();
        for (const QRegularExpression &place : places) {
            const QRegularExpressionMatch match = place.match(line);
            if (match.hasMatch())
                line.replace(match.capturedStart(1), match.capturedLength(1), u"..."_s);
        }
        for (const QString &secret : found) {
            if (holds(line, secret))
                result.append(u"the log tells the secret '%1': %2"_s.arg(secret, line));
        }
    }
    return result;
}

QStringList Secrets::journalLeaks(const QStringList &journal) const
{
    QStringList result;
    for (const QString &row : journal) {
        for (const QString &secret : found) {
            if (holds(row, secret))
                result.append(u"the journal tells the secret '%1': %2"_s.arg(secret, row));
        }
    }
    return result;
}

void Secrets::take(const QString &value)
{
    const QString text = value.trimmed();
    // A pattern of the scenario is not a literal text.
    if (text.size() < minLength || text.contains(u"{{"_s))
        return;
    found.insert(text);
    // Such as Basic, Bearer and a key in quotes.
    static const QRegularExpression inside(u"^(?:[A-Za-z]+ )(?:[A-Za-z]+=)?\"?([^\"\\s]+)\"?$"_s);
    const QRegularExpressionMatch match = inside.match(text);
    if (match.hasMatch() && match.capturedLength(1) >= minLength)
        found.insert(match.captured(1));
}

void Secrets::takeNamed(const QString &name, const QString &value)
{
    if (isSecretName(name))
        take(value);
    const QUrl url(value);
    if (url.isValid() && !url.host().isEmpty()) {
        take(url.password());
        for (const auto &[key, entry] : QUrlQuery(url).queryItems())
            takeNamed(key, entry);
    } else {
        takeFromText(value);
    }
}

/// JSON, or lines of settings.
void Secrets::takeFromText(const QString &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (document.isObject())
        takeFromJson(document.object(), QString());
    else if (document.isArray())
        takeFromJson(document.array(), QString());
    else if (!text.startsWith(u'<')) {
        for (const QString &line : text.split(u'\n')) {
            if (line.contains(u'=') && isSecretName(line.section(u'=', 0, 0).trimmed()))
                take(line.section(u'=', 1));
        }
    }
}

void Secrets::takeFromJson(const QJsonValue &value, const QString &name)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            takeFromJson(member.value(), member.key());
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (const QJsonValue &entry : array)
            takeFromJson(entry, name);
    } else {
        takeNamed(name, value.toVariant().toString());
    }
}

void Secrets::takeFromMessage(const stand::QueuedMessage &message)
{
    takeFromText(message.body);
}
