#include "tests/support/fakerestclient.h"

#include "shared/core/mockfactory.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

void fail(const QString &text)
{
    QTest::qFail(qPrintable(text), __FILE__, __LINE__);
}

QByteArray verbOf(int operation)
{
    static const QList<QByteArray> verbs = {"", "HEAD", "GET", "PUT", "POST", "DELETE"};
    return verbs.value(operation, "verb " + QByteArray::number(operation));
}

QString lineOf(const QByteArray &verb, const QUrl &url)
{
    return QString::fromUtf8(verb + ' ' + url.toEncoded());
}

QMap<QString, QString> sorted(const RestClient::Headers &headers)
{
    QMap<QString, QString> map;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

} // namespace

http::Response reply(int status, const QByteArray &body)
{
    return http::Response::answered(status, body);
}

http::Response json(int status, const QJsonObject &object)
{
    return reply(status, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

http::Response noConnection()
{
    return http::Response::failed(1, tr::Tr(u"Сервер отклонил соединение"_s));
}

http::Response timeout()
{
    return http::Response::failed(4, tr::Tr(u"Сервер не ответил вовремя"_s));
}

QJsonObject FakeRestClient::Request::jsonObject() const
{
    return QJsonDocument::fromJson(body).object();
}

FakeRestClient::FakeRestClient(const Script &script)
    : script(script)
{
    // The object belongs to the test's stack, so the factory's pointer must not delete it.
    MockFactory<RestClient>::install(std::shared_ptr<RestClient>(this, [](RestClient *) {}));
}

FakeRestClient::~FakeRestClient()
{
    MockFactory<RestClient>::install(nullptr);
    const QString complaint = takeComplaint();
    // A test that has already failed needs no second message.
    if (!complaint.isEmpty() && !QTest::currentTestFailed())
        fail(complaint);
}

void FakeRestClient::play(const Script &more)
{
    const QMutexLocker locker(&mutex);
    script += more;
}

void FakeRestClient::nextDelivery()
{
    const QMutexLocker locker(&mutex);
    settings = Request();
    setLogger(nullptr);
    setCompactLogs(false);
    setResponse({});
}

QList<FakeRestClient::Request> FakeRestClient::requests() const
{
    const QMutexLocker locker(&mutex);
    return recorded;
}

FakeRestClient::Request FakeRestClient::requestAt(int index) const
{
    const QMutexLocker locker(&mutex);
    if (index >= 0 && index < recorded.size())
        return recorded.at(index);
    fail(u"There is no request %1, only %2 were made"_s.arg(index).arg(recorded.size()));
    return {};
}

FakeRestClient::Request FakeRestClient::lastRequest() const
{
    return requestAt(static_cast<int>(requests().size()) - 1);
}

QStringList FakeRestClient::transcript() const
{
    const QMutexLocker locker(&mutex);
    QStringList lines;
    for (const Request &request : recorded)
        lines.append(lineOf(request.verb, request.url));
    return lines;
}

QStringList FakeRestClient::steps() const
{
    const QMutexLocker locker(&mutex);
    return allSteps;
}

int FakeRestClient::repliesLeft() const
{
    const QMutexLocker locker(&mutex);
    return static_cast<int>(script.size());
}

QString FakeRestClient::takeComplaint()
{
    const QMutexLocker locker(&mutex);
    const QStringList requests = std::exchange(surplus, {});
    const qsizetype replies = std::exchange(script, {}).size();
    if (!requests.isEmpty())
        return u"Requests beyond the script: "_s + requests.join(u", ");
    return replies ? u"Replies that no request asked for: %1"_s.arg(replies) : QString();
}

void FakeRestClient::request(int verb, const QUrl &url, const QJsonDocument &body,
                             const Headers &headers)
{
    exchange(verbOf(verb), url, body.toJson(QJsonDocument::Compact), sorted(headers));
}

void FakeRestClient::get(const QUrl &url, const QJsonDocument &body, const Headers &headers)
{
    exchange("GET", url, body.toJson(QJsonDocument::Compact), sorted(headers));
}

void FakeRestClient::send(const http::Params &params)
{
    QMap<QString, QString> headers;
    for (auto it = params.headers.cbegin(); it != params.headers.cend(); ++it)
        headers.insert(QString::fromUtf8(it.key()), QString::fromUtf8(it.value()));
    exchange(params.verb(), params.url, params.body, headers, params.parts);
}

void FakeRestClient::post(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    exchange("POST", url, body, sorted(headers));
}

void FakeRestClient::post(const QUrl &url, const QJsonDocument &body, const Headers &headers)
{
    exchange("POST", url, body.toJson(QJsonDocument::Compact), sorted(headers));
}

void FakeRestClient::put(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    exchange("PUT", url, body, sorted(headers));
}

int FakeRestClient::errorCode() const
{
    return RestClient::errorCode();
}

int FakeRestClient::statusCode() const
{
    return RestClient::statusCode();
}

tr::Tr FakeRestClient::errorText() const
{
    return RestClient::errorText();
}

QVariant FakeRestClient::responseVariant() const
{
    return RestClient::responseVariant();
}

QJsonDocument FakeRestClient::responseJson() const
{
    return RestClient::responseJson();
}

QByteArray FakeRestClient::responseBody() const
{
    return RestClient::responseBody();
}

void FakeRestClient::setTimeout(int seconds)
{
    record(u"setTimeout %1"_s.arg(seconds));
    const QMutexLocker locker(&mutex);
    settings.timeoutMs = qint64(seconds) * 1000;
}

void FakeRestClient::setTimeoutMs(qint64 milliseconds)
{
    record(u"setTimeoutMs %1"_s.arg(milliseconds));
    const QMutexLocker locker(&mutex);
    settings.timeoutMs = milliseconds;
}

void FakeRestClient::setCertificatePath(const QString &path)
{
    record(u"setCertificatePath "_s + path);
    const QMutexLocker locker(&mutex);
    settings.certificatePath = path;
}

void FakeRestClient::setCertificatePassword(const QString &password)
{
    record(u"setCertificatePassword "_s + password);
    const QMutexLocker locker(&mutex);
    settings.certificatePassword = password;
}

void FakeRestClient::setPrivateKeyPath(const QString &path)
{
    record(u"setPrivateKeyPath "_s + path);
    const QMutexLocker locker(&mutex);
    settings.privateKeyPath = path;
}

bool FakeRestClient::hasResponse() const
{
    return RestClient::hasResponse();
}

bool FakeRestClient::isNetworkError() const
{
    return RestClient::isNetworkError();
}

http::Response FakeRestClient::response() const
{
    return RestClient::response();
}

void FakeRestClient::setSecretHeaders(const QStringList &names)
{
    record(u"setSecretHeaders "_s + names.join(u','));
    const QMutexLocker locker(&mutex);
    settings.secretHeaders = names;
}

void FakeRestClient::exchange(const QByteArray &verb, const QUrl &url, const QByteArray &body,
                              const QMap<QString, QString> &headers, const QList<http::Part> &parts)
{
    const QMutexLocker locker(&mutex);
    Request request = settings;
    request.verb = verb;
    request.url = url;
    request.headers = headers;
    request.body = body;
    request.parts = parts;
    request.logger = logger();
    request.compactLogs = isCompactLogs();
    recorded.append(request);
    settings.settings.clear();

    const QString line = lineOf(verb, url);
    allSteps.append(line);
    if (script.isEmpty()) {
        surplus.append(line);
        endExchange(noConnection(), url);
        return;
    }
    endExchange(script.takeFirst(), url);
}

void FakeRestClient::record(const QString &setting)
{
    const QMutexLocker locker(&mutex);
    settings.settings.append(setting);
    allSteps.append(setting);
}
