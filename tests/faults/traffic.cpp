#include "tests/faults/traffic.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <charconv>

using namespace Qt::StringLiterals;
using rig::FastPeer;

namespace faults {

namespace {

/// Excise marks come in pairs: an even message and the next one of its type name the same mark.
int markOf(int number)
{
    return number / (2 * static_cast<int>(Traffic::types().size()));
}

QString text(std::string_view bytes)
{
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

} // namespace

const QStringList &Traffic::types()
{
    static const QStringList names{u"heineken"_s,   u"cardlab"_s,      u"winelabbonus"_s,
                                   u"megar"_s,      u"loymax"_s,       u"counterchange"_s,
                                   u"excisemark"_s, u"raiffeisensbp"_s};
    return names;
}

Traffic::Traffic()
    : receiver([this](const FastPeer::Request &request) { return answer(request); })
{
}

Traffic::~Traffic()
{
    // Its thread cannot end while it waits.
    release();
}

QString Traffic::body(int number) const
{
    const QString type = typeOf(number);
    const QString mark = u"#%1#"_s.arg(number);
    const QString url = u"http://127.0.0.1:%1/%2/"_s.arg(QString::number(receiver.port()), type);
    QJsonObject body{{u"url"_s, url}, {u"timeout"_s, 30}};
    if (type == u"heineken" || type == u"cardlab") {
        body.insert(u"body"_s, u"{\"receipt\":\"%1\"}"_s.arg(mark));
    } else if (type == u"winelabbonus") {
        body.insert(u"body"_s, QJsonObject{{u"receipt"_s, mark}});
    } else if (type == u"megar") {
        body.insert(u"body"_s, u"<Rqst><Card>%1</Card></Rqst>"_s.arg(mark));
    } else if (type == u"loymax") {
        body.insert(u"body"_s, u"<Confirm><Card>%1</Card></Confirm>"_s.arg(mark));
        body.insert(u"cardId"_s, u"1"_s);
    } else if (type == u"counterchange") {
        body.insert(u"message"_s, u"{\"operationId\":\"%1\",\"delta\":1}"_s.arg(mark));
    } else if (type == u"excisemark") {
        const QJsonObject document{{u"exciseMarkId"_s, u"M-%1-"_s.arg(markOf(number))},
                                   {u"receipt"_s, mark}};
        body.insert(
            u"body"_s,
            QString::fromUtf8(QJsonDocument(QJsonArray{document}).toJson(QJsonDocument::Compact)));
    } else {
        const QString query = u"?n=%23"_s + QString::number(number);
        body.insert(u"urls"_s, QJsonArray{url + u"code"_s + query, url + u"refund"_s + query,
                                          url + u"info"_s + query});
        body.insert(u"body"_s, u"{\"refundId\":\"%1\"}"_s.arg(mark));
    }
    return QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact));
}

int Traffic::numberIn(std::string_view text)
{
    for (const std::string_view border : {"#", "%23"}) {
        const size_t begin = text.find(border);
        if (begin == std::string::npos)
            continue;
        int number = -1;
        std::from_chars(text.data() + begin + border.size(), text.data() + text.size(), number);
        return number;
    }
    return -1;
}

void Traffic::setRefusing(bool on)
{
    const std::scoped_lock lock(mutex);
    refusing = on;
}

void Traffic::holdAfter(int requests)
{
    const std::scoped_lock lock(mutex);
    holdFrom = counts_.requests + requests;
}

void Traffic::release()
{
    const std::scoped_lock lock(mutex);
    holdFrom = -1;
    released.notify_all();
}

void Traffic::beginLife()
{
    receiver.settle();
    const std::scoped_lock lock(mutex);
    ++life;
}

Traffic::Counts Traffic::counts() const
{
    const std::scoped_lock lock(mutex);
    return counts_;
}

QHash<int, Traffic::Record> Traffic::records() const
{
    const std::scoped_lock lock(mutex);
    return records_;
}

QSet<int> Traffic::done() const
{
    const std::scoped_lock lock(mutex);
    QSet<int> numbers;
    for (const auto &[number, record] : records_.asKeyValueRange()) {
        if (record.done > 0)
            numbers.insert(number);
    }
    return numbers;
}

QHash<QString, int> Traffic::repeatsByType() const
{
    const std::scoped_lock lock(mutex);
    return repeatsByType_;
}

bool Traffic::waitFor(const std::function<bool(const Counts &)> &condition,
                      std::chrono::microseconds limit) const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return condition(counts_); });
}

std::string Traffic::answer(const FastPeer::Request &request)
{
    std::unique_lock lock(mutex);
    if (holdFrom >= 0 && counts_.requests >= holdFrom) {
        ++counts_.held;
        changed.notify_all();
        released.wait(lock, [this] { return holdFrom < 0; });
    }
    ++counts_.requests;
    changed.notify_all();
    const QString type = text(request.target).section(u'/', 1, 1);
    int number = numberIn(request.body);
    if (number < 0)
        number = numberIn(request.target);
    if (number < 0 || typeOf(number) != type)
        qFatal("a request that no message asks for: %s\n%s", qPrintable(text(request.head)),
               qPrintable(text(request.body)));
    return judge(type, number, request.target);
}

/// A handler of several steps is refused at its first step and finished at its last one.
std::string Traffic::judge(const QString &type, int number, std::string_view target)
{
    if (type == u"raiffeisensbp") {
        if (target.find("/code") != std::string::npos)
            return refuse(number) ? FastPeer::reply(503)
                                  : FastPeer::reply(200, R"({"qrStatus":"PAID"})");
        if (target.find("/refund") != std::string::npos)
            return FastPeer::reply(200, "{}");
        finish(type, number);
        return FastPeer::reply(200, R"({"refundStatus":"COMPLETED"})");
    }

    const bool isRefused = refuse(number);
    if (!isRefused)
        finish(type, number);
    if (type == u"megar")
        return FastPeer::reply(200, isRefused ? "<Trn><Rspn>DECL</Rspn></Trn>"
                                              : "<Trn><Rspn>APPR</Rspn></Trn>");
    if (type == u"loymax") {
        return FastPeer::reply(200, isRefused
                                        ? "<r><DiscountResponse ErrorCode=\"1\"/></r>"
                                        : "<r><DiscountResponse ErrorCode=\"0\" TransactionID=\"t-"
                                              + std::to_string(number) + "\"/></r>");
    }
    return FastPeer::reply(isRefused ? 503 : 200);
}

bool Traffic::refuse(int number)
{
    Record &record = records_[number];
    if (!refusing || number % 7 != 3 || record.refused >= 2)
        return false;
    ++record.refused;
    ++counts_.refusals;
    return true;
}

void Traffic::finish(const QString &type, int number)
{
    Record &record = records_[number];
    if (record.done++ == 0) {
        ++counts_.messages;
    } else {
        ++counts_.repeats;
        ++repeatsByType_[type];
        if (record.lastLife == life)
            ++counts_.repeatsInOneLife;
    }
    record.lastLife = life;
    // The older message of a pair is one round of the types earlier.
    const int older = number - static_cast<int>(types().size());
    if (type == u"excisemark" && older >= 0 && markOf(older) == markOf(number)
        && records_.value(older).done == 0)
        ++counts_.outOfOrder;
}

} // namespace faults
