// The till's writes to the SQLite file: inserts a row, pauses and repeats until SIGTERM, with the
// till's own settings. Then prints the duration of each INSERT in milliseconds, followed by
// "failed" for failed ones.
//
// queue-tillwriter FILE TYPE PAUSE-MS

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> isStopped = false;

struct Insert
{
    std::chrono::duration<double, std::milli> took;
    bool isDone = false;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fputs("usage: queue-tillwriter FILE TYPE PAUSE-MS\n", stderr);
        return 2;
    }
    std::signal(SIGTERM, [](int) { isStopped = true; });
    sqlite3 *database = nullptr;
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_open_v2(argv[1], &database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK
        || sqlite3_busy_timeout(database, 5000) != SQLITE_OK
        || sqlite3_exec(database, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr) != SQLITE_OK
        || sqlite3_prepare_v2(database, "INSERT INTO message (type, body) VALUES (?, '{}')", -1,
                              &statement, nullptr)
               != SQLITE_OK) {
        std::fprintf(stderr, "queue-tillwriter: %s\n", sqlite3_errmsg(database));
        return 1;
    }
    sqlite3_bind_text(statement, 1, argv[2], -1, SQLITE_STATIC);

    const std::chrono::milliseconds pause(std::atoi(argv[3]));
    std::vector<Insert> inserts;
    while (!isStopped) {
        // Between two inserts: at fixed intervals a till could saturate a slow disk by itself.
        std::this_thread::sleep_for(pause);
        const auto begin = Clock::now();
        const int result = sqlite3_step(statement);
        inserts.push_back({Clock::now() - begin, result == SQLITE_DONE});
        sqlite3_reset(statement);
        // Only lock conflicts are expected; any other error makes the figures useless.
        if (result != SQLITE_DONE && result != SQLITE_BUSY) {
            std::fprintf(stderr, "queue-tillwriter: %s\n", sqlite3_errmsg(database));
            return 1;
        }
    }
    for (const Insert &insert : inserts)
        std::printf("%.3f%s\n", insert.took.count(), insert.isDone ? "" : " failed");
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return 0;
}
