#pragma once

#include <QString>

#include <functional>

/// Closes the calling thread's connection to the till's database, opening it first if need be.
void removeOwnConnection();

/// The text of the exception that opening the connection throws; empty when it is open.
QString connectError();

/// Runs `function` on `count` threads at once and waits for their end.
void onThreads(int count, const std::function<void()> &function);
