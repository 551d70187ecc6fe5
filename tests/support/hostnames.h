#pragma once

#include <QByteArray>
#include <QList>

/// From now on `name` has these addresses, in this order, for everything in this program that asks
/// the system. Qt remembers a name for a minute, so each test takes another one. Thread: any.
void setAddressesOf(const QByteArray &name, const QList<QByteArray> &addresses);
