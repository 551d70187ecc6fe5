#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

/// Runs one input. Each program of this folder has one: libFuzzer calls it with generated inputs,
/// the replay program with those in the source tree.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace fuzz {

/// Ends the program, so that the caller keeps the input as a finding.
[[noreturn]] void fail(const QString &what);

inline void check(bool holds, const char *what)
{
    if (!holds)
        fail(QString::fromUtf8(what));
}

/// The application object and an empty till below QUEUE_ROOT, made at the first call. The log is
/// switched off. Gone with the process.
/// The result is the till's root.
QString till();

/// Writes a file of the till, its folders too.
void writeFile(const QString &path, const QByteArray &content);

/// A file that lies in memory alone.
class MemoryFile
{
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile &) = delete;

    /// The path under which it can be opened.
    QString path() const;
    void setContent(const QByteArray &content);

private:
    int descriptor = -1;
};

/// Separates the parts of one input.
constexpr char separator = '\x1e';

} // namespace fuzz
