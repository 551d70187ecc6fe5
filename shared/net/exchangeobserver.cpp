#include "shared/net/exchangeobserver.h"

#include <utility>

namespace {

thread_local http::ExchangeObserver *observerOfThread = nullptr;

} // namespace

namespace http {

ExchangeObservation::ExchangeObservation(ExchangeObserver &observer)
    : former(std::exchange(observerOfThread, &observer))
{
}

ExchangeObservation::~ExchangeObservation()
{
    observerOfThread = former;
}

void tellObserver(const ExchangeReport &report)
{
    if (observerOfThread)
        observerOfThread->exchangeEnded(report);
}

} // namespace http
