#include "tests/faults/feeder.h"

#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/faults/traffic.h"
#include "tests/support/queuedatabase.h"

using namespace Qt::StringLiterals;

namespace faults {

Feeder::Feeder(QueueDatabase &database, const Traffic &traffic, int backlog)
    : database(database)
    , traffic(traffic)
    , backlog(backlog)
    , thread(&Feeder::run, this)
{
}

Feeder::~Feeder()
{
    stop();
}

void Feeder::stop()
{
    stopping = true;
    if (thread.joinable())
        thread.join();
}

void Feeder::run()
{
    using namespace std::chrono_literals;
    const auto isWanted = [this](const Traffic::Counts &counts) {
        return stopping
               || (writtenCount - counts.messages < backlog
                   && (limit == 0 || writtenCount < limit));
    };
    while (!stopping) {
        // Polled, since there is no signal for a stop or a new limit.
        if (!traffic.waitFor(isWanted, 20ms) || stopping)
            continue;
        const int number = writtenCount;
        database.query(u"INSERT INTO message (type, body) VALUES (?, ?)"_s,
                       {Traffic::typeOf(number), traffic.body(number)});
        ++writtenCount;
    }
    auto *factory = Singleton<ConnectionFactory>::instance();
    const QString name = factory->getConnection().connectionName();
    factory->removeConnection(name);
}

} // namespace faults
