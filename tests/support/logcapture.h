#pragma once

#include <QStringList>

#include <memory>

/// Collects the lines of the category `name`, from trace up, as they are logged by any thread; with
/// an empty name those of every category that has no level or capture of its own. While it lives
/// the lines of a named category go nowhere else. Events of the logging library itself are left
/// out. Captures of the same category end in reverse order.
class LogCapture
{
public:
    explicit LogCapture(const QString &name = QString());
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines so far, such as "INFO text".
    QStringList lines() const;
    void clear();

private:
    class Collector;
    struct Attachment;
    std::unique_ptr<Attachment> attachment;
};
