#pragma once

#include <QString>
#include <QUrl>
#include <QUrlQuery>

namespace http {

/// `value` percent-encoded for QUrlQuery, so that every character reaches the service unchanged,
/// even an ampersand, a plus or a percent sign. Never null: for a null value QUrlQuery omits the
/// `=` after the key, and a service may read `?Brand` differently from `?Brand=`.
QString queryValue(const QString &value);

/// Replaces the query of `url`. An invalid address is left unchanged: setting a query would make
/// the rest of it valid, possibly as the address of another server.
void setQuery(QUrl &url, const QUrlQuery &query);

} // namespace http
