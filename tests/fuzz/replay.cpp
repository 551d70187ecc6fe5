#include "tests/faults/form.h"
#include "tests/fuzz/fuzz.h"

#include <QDirIterator>
#include <QFile>
#include <QProcess>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

int inputs = 0;

void tryInput(const QByteArray &input)
{
    // A block of exactly the input's size, so that a sanitizer sees a read beyond its end.
    const std::vector<std::uint8_t> copy(input.cbegin(), input.cend());
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
    ++inputs;
}

/// The input, its beginnings, and copies with one byte changed.
void tryAround(const QByteArray &input)
{
    constexpr qsizetype maxSteps = 50;
    tryInput(input);
    const qsizetype step = std::max<qsizetype>(1, input.size() / maxSteps);
    for (qsizetype at = 0; at < input.size(); at += step) {
        tryInput(input.left(at));
        for (const char byte : {'\0', '"', '\xff', static_cast<char>(input[at] ^ 1)}) {
            QByteArray changed = input;
            changed[at] = byte;
            tryInput(changed);
        }
    }
}

} // namespace

/// Runs the stored inputs on one target, without libFuzzer. The long form then lets libFuzzer
/// search for new ones.
int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fputs("Usage: fuzz_NAME NAME FOLDER\n", stderr);
        return 2;
    }
    QDirIterator files(QString::fromLocal8Bit(argv[2]), QDir::Files);
    int count = 0;
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly))
            fuzz::fail(file.fileName() + u": "_s + file.errorString());
        std::fprintf(stderr, "%s\n", qUtf8Printable(files.fileName()));
        tryAround(file.readAll());
        ++count;
    }
    if (count == 0)
        fuzz::fail(u"there are no inputs"_s);
    std::printf("%s: %d inputs around %d files of the corpus\n", argv[1], inputs, count);
    std::fflush(stdout);
    if (!faults::longForm())
        return 0;
    return QProcess::execute(QStringLiteral(QUEUE_FUZZ_SCRIPT),
                             {u"--seconds"_s, u"30"_s, QString::fromLocal8Bit(argv[1])});
}
