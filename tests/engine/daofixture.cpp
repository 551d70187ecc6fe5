#include "tests/engine/daofixture.h"

#include <QStringList>

#include <cstdio>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

QStringList qtWarnings;

void collectQtWarnings(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type == QtWarningMsg)
        qtWarnings.append(text);
    else if (type == QtFatalMsg)
        fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

DaoFixture::DaoFixture(MariaDbServer *server)
    : server(server)
{
}

DaoFixture::~DaoFixture() = default;

void DaoFixture::init()
{
    qtWarnings.clear();
    qInstallMessageHandler(collectQtWarnings);
    database = std::make_unique<QueueDatabase>();
    if (server) {
        database->setSettings(server->settings());
        server->run(u"TRUNCATE TABLE queues.message"_s);
    }
}

void DaoFixture::cleanup()
{
    database.reset();
    qInstallMessageHandler(nullptr);
    QCOMPARE(qtWarnings.join(u'\n'), QString());
}

void DaoFixture::change(const QString &statement)
{
    if (server)
        server->run(u"USE queues; "_s + statement);
    else
        database->query(statement);
}
