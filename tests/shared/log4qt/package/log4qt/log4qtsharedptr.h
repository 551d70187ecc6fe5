#pragma once

#include <QObject>
#include <QSharedPointer>

namespace Log4Qt {

template <typename T>
class Log4QtSharedPtr : public QSharedPointer<T>
{
public:
    Log4QtSharedPtr(T *object)
        : QSharedPointer<T>(object, &T::deleteLater)
    {
    }
    Log4QtSharedPtr() = default;
    Log4QtSharedPtr(const QSharedPointer<T> &other)
        : QSharedPointer<T>(other)
    {
    }
};

} // namespace Log4Qt
