#include "benchmarks/report.h"

#include "benchmarks/statistics.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

void open(QFile &file, const QString &path, const QByteArray &header)
{
    file.setFileName(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        fail(u"%1: %2"_s.arg(path, file.errorString()));
    file.write(header + '\n');
    file.flush();
}

QString number(double value)
{
    return QString::number(value, 'f', value < 10 ? 2 : 1);
}

QString verdict(double value, Target target)
{
    const bool isReached =
        target.kind == Target::Kind::AtMost ? value <= target.value : value >= target.value;
    return u"%1 %2: %3"_s.arg(target.kind == Target::Kind::AtMost ? u"at most"_s : u"at least"_s,
                              QString::number(target.value),
                              isReached ? u"reached"_s : u"MISSED"_s);
}

} // namespace

Report::Report(const QString &path)
    : out(stdout)
{
    open(file, path, "what,database,bare loop,service,unit,ratio,target");
}

void Report::heading(const QString &text)
{
    out << '\n'
        << text << "\n\n"
        << u"%1 %2 %3 %4 %5 %6\n"_s.arg(u"what"_s, -44)
               .arg(u"database"_s, -8)
               .arg(u"bare"_s, 9)
               .arg(u"service"_s, 9)
               .arg(u""_s, -11)
               .arg(u"ratio"_s, 6);
    out.flush();
}

void Report::note(const QString &text)
{
    out << "    " << text << '\n';
    out.flush();
}

void Report::columns(const QString &text, const QString &header)
{
    const QFileInfo beside(file.fileName());
    open(columnsFile, beside.dir().filePath(u"till.csv"_s), header.toUtf8());
    note(text);
}

void Report::values(const QStringList &texts, const QString &line)
{
    out << "      " << texts.first().leftJustified(28);
    for (const QString &text : texts.sliced(1))
        out << "  " << text;
    out << '\n';
    out.flush();
    columnsFile.write(line.toUtf8() + '\n');
    columnsFile.flush();
}

void Report::figure(const QString &what, const QString &database, double value, const QString &unit,
                    Target target)
{
    row(what, database, QString(), number(value), unit, value, target, QString());
}

void Report::ratio(const QString &what, const QString &database, double bare, double service,
                   const QString &unit, Target target)
{
    const double ratio = service / bare;
    row(what, database, number(bare), number(service), unit, ratio, target,
        QString::number(ratio, 'f', 3));
}

void Report::row(const QString &what, const QString &database, const QString &bare,
                 const QString &service, const QString &unit, double judged, Target target,
                 const QString &ratio)
{
    const QString judgement =
        target.kind == Target::Kind::None ? QString() : verdict(judged, target);
    out << u"%1 %2 %3 %4 %5 %6  %7\n"_s.arg(what, -44)
               .arg(database, -8)
               .arg(bare, 9)
               .arg(service, 9)
               .arg(unit, -11)
               .arg(ratio, 6)
               .arg(judgement);
    out.flush();
    file.write(
        QStringList{what, database, bare, service, unit, ratio, judgement}.join(u',').toUtf8()
        + '\n');
    file.flush();
}

Series::Series(const QString &path)
{
    open(file, path, "database,x,bare,service");
}

void Series::add(const QString &database, int x, double bare, double service)
{
    file.write(u"%1,%2,%3,%4\n"_s.arg(database)
                   .arg(x)
                   .arg(bare, 0, 'f', 2)
                   .arg(service, 0, 'f', 2)
                   .toUtf8());
    file.flush();
}
