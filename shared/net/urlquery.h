#pragma once

#include <QString>
#include <QUrl>
#include <QUrlQuery>

namespace http {

/// `value` percent-encoded for QUrlQuery, so that every character reaches the service as it is: an
/// ampersand, a plus or a per cent sign too. Never null: QUrlQuery leaves out the `=` after the key
/// of a null value, and a service may read `?Brand` differently from `?Brand=`.
QString queryValue(const QString &value);

/// Replaces the query of `url`. An address that cannot be read stays as it is: with a query, what
/// is left of it would become readable, and it may be another server's.
void setQuery(QUrl &url, const QUrlQuery &query);

} // namespace http
