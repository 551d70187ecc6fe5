#pragma once

#include "shared/net/restclient.h"

#include <QJsonObject>
#include <QMutex>

#include <optional>

/// The replies of a FakeRestClient, in order.
using Script = QList<http::Response>;

/// An answer; its errorCode and errorText are what RestClient gives for the status.
http::Response reply(int status, const QByteArray &body = {});
http::Response json(int status, const QJsonObject &object);
/// The server could not be reached.
http::Response noConnection();
/// The server did not answer in time.
http::Response timeout();

/// Installed in MockFactory<RestClient> for its lifetime, on the stack of one test. It records
/// every call and plays its script. At its end it fails the test if there were more requests than
/// replies (each is answered with noConnection()), or if a reply was left over.
///
/// MockFactory returns this one object for every client that a handler creates, so settings of one
/// delivery stay in the next. Call nextDelivery() between two deliveries; within one,
/// `Request::settings` holds the calls since the previous request.
class FakeRestClient : public RestClient
{
    Q_OBJECT

public:
    struct Request
    {
        QByteArray verb;
        QUrl url;
        /// As the caller gave them, without those that RestClient adds.
        QMap<QString, QString> headers;
        QByteArray body;
        QList<http::Part> parts;
        /// Empty: setTimeout was not called.
        std::optional<qint64> timeoutMs;
        QString certificatePath;
        QString certificatePassword;
        QString privateKeyPath;
        QStringList secretHeaders;
        Log4Qt::Logger *logger = nullptr;
        bool compactLogs = false;
        /// The setters called since the previous request, such as "setTimeout 10".
        QStringList settings;

        QString header(const QString &name) const { return headers.value(name); }
        QJsonObject jsonObject() const;
    };

    explicit FakeRestClient(const Script &script = {});
    ~FakeRestClient() override;

    /// Adds replies to the script.
    void play(const Script &more);
    /// Forgets the settings, like a new client. Requests and script stay.
    void nextDelivery();

    QList<Request> requests() const;
    /// The request at `index`; an empty one, and a failed test, when there is none.
    Request requestAt(int index) const;
    Request lastRequest() const;
    /// The requests as lines such as "POST https://host/path".
    QStringList transcript() const;
    /// All calls in their order: setters such as "setTimeout 10" and the lines of transcript().
    QStringList steps() const;
    int repliesLeft() const;
    /// The message with which the end of the object would fail the test; empty for none. It is then
    /// forgotten.
    QString takeComplaint();

    void request(int verb, const QUrl &url, const QJsonDocument &body,
                 const Headers &headers) override;
    void get(const QUrl &url, const QJsonDocument &body, const Headers &headers) override;
    void send(const http::Params &params) override;
    void post(const QUrl &url, const QByteArray &body, const Headers &headers) override;
    void post(const QUrl &url, const QJsonDocument &body, const Headers &headers) override;
    void put(const QUrl &url, const QByteArray &body, const Headers &headers) override;
    int errorCode() const override;
    int statusCode() const override;
    tr::Tr errorText() const override;
    QVariant responseVariant() const override;
    QJsonDocument responseJson() const override;
    QByteArray responseBody() const override;
    void setTimeout(int seconds) override;
    void setTimeoutMs(qint64 milliseconds) override;
    void setCertificatePath(const QString &path) override;
    void setCertificatePassword(const QString &password) override;
    void setPrivateKeyPath(const QString &path) override;
    bool hasResponse() const override;
    bool isNetworkError() const override;
    http::Response response() const override;
    void setSecretHeaders(const QStringList &names) override;

private:
    void exchange(const QByteArray &verb, const QUrl &url, const QByteArray &body,
                  const QMap<QString, QString> &headers, const QList<http::Part> &parts = {});
    void record(const QString &setting);

    /// Handlers may run on a pool thread while the test reads.
    mutable QMutex mutex;
    Script script;
    Request settings;
    QList<Request> recorded;
    QStringList allSteps;
    QStringList surplus;
};
