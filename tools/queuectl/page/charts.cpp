#include "tools/queuectl/page/charts.h"

#include "tools/queuectl/text.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

// Lengths in pixels.
constexpr int wordsHeight = 20;
constexpr int axisHeight = 22;
constexpr int laneGap = 10;
constexpr int lineHeight = 12;
constexpr int lineGap = 12;
constexpr double lowestColumn = 2;
/// Of the width of its part of the time; the rest is the gap to the next one.
constexpr double columnShare = 0.84;
/// Shorter stretches are drawn this long, as a share of the width.
constexpr double shortestStretch = 0.004;

/// The width of a sparkline in its own units, which are stretched to that of its place.
constexpr double sparkWidth = 600;
constexpr double barsWidth = 100;
constexpr int barsHeight = 24;

QString number(double value)
{
    return QString::number(std::round(value * 10) / 10);
}

QString percent(double share)
{
    return QString::number(std::round(share * 10'000) / 100) + u'%';
}

QString tone(const char *name)
{
    return QString::fromLatin1(name);
}

int highestOf(const QList<int> &values)
{
    return values.isEmpty() ? 0 : *std::max_element(values.cbegin(), values.cend());
}

double columnHeight(int value, int highest, double height)
{
    return value <= 0 ? 0 : std::max(lowestColumn, height * value / std::max(1, highest));
}

/// An image whose words are read out in its place.
void openImage(Html &html, const ChartText &words, std::initializer_list<Attribute> attributes)
{
    html.open("svg", attributes);
    html.element("title", words.title);
    html.element("desc", words.description);
}

void openChart(Html &html, const ChartText &words, int height)
{
    const QString id = html.newId();
    html.open("svg", {{"class", u"chart"_s},
                      {"role", u"img"_s},
                      {"aria-labelledby", id + u"t "_s + id + u'd'},
                      {"width", u"100%"_s},
                      {"height", QString::number(height)}});
    html.element("title", words.title, {{"id", id + u't'}});
    html.element("desc", words.description, {{"id", id + u'd'}});
}

/// The left words give way to the right ones: SVG's own texts would cover each other.
void writeWords(Html &html, const QString &left, const QString &right, int top)
{
    html.open("foreignObject", {{"x", u"0"_s},
                                {"y", QString::number(top)},
                                {"width", u"100%"_s},
                                {"height", QString::number(wordsHeight)}});
    html.open("div", {{"class", u"lane"_s}});
    html.element("span", left);
    html.element("span", right, {{"class", u"faint"_s}});
    html.close(2);
}

void writeLine(Html &html, double left, double right, int top, int bottom, const char *name)
{
    html.open("line", {{"x1", percent(left)},
                       {"x2", percent(right)},
                       {"y1", QString::number(top)},
                       {"y2", QString::number(bottom)},
                       {"class", tone(name)}});
    html.close();
}

void writeAxis(Html &html, const TimeScale &scale, int height)
{
    const QList<TimeScale::Mark> marks = scale.marks();
    constexpr qsizetype mostOnTelephone = 5;
    bool isSpare = false;
    for (const TimeScale::Mark &mark : marks) {
        writeLine(html, mark.position, mark.position, 0, height - axisHeight, "grid");
        html.element("text", mark.text,
                     {{"x", percent(mark.position)},
                      {"y", QString::number(height - 5)},
                      {"text-anchor", u"middle"_s},
                      {"class", isSpare ? u"faint spare"_s : u"faint"_s}});
        // On a narrow screen every other text is left out.
        isSpare = marks.size() > mostOnTelephone && !isSpare;
    }
}

void writeLane(Html &html, const TimeScale &scale, const Lane &lane, int top)
{
    const int highest = highestOf(lane.values);
    writeWords(html, lane.title,
               highest == 0 ? text("none", "нет")
                            : text("max %1", "макс. %1").arg(numberText(highest)),
               top);
    const int bottom = top + wordsHeight + lane.height;
    for (int part = 0; part < lane.values.size(); ++part) {
        const int value = lane.values[part];
        if (value <= 0)
            continue;
        const double left = scale.position(scale.edge(part));
        const double width = scale.position(scale.edge(part + 1)) - left;
        const double height = columnHeight(value, highest, lane.height);
        html.open("rect", {{"x", percent(left)},
                           {"y", number(bottom - height)},
                           {"width", percent(width * columnShare)},
                           {"height", number(height)},
                           {"class", tone(lane.tone)}});
        // Browsers show it at the pointer.
        html.element("title", u"%1: %2"_s.arg(scale.edge(part).toString(u"yyyy-MM-dd HH:mm"_s),
                                              numberText(value)));
        html.close();
    }
    writeLine(html, 0, 1, bottom, bottom, "base");
}

/// The outline of a column, in the units of the image.
QString columnPath(double left, double width, double bottom, double height)
{
    return u"M%1 %2h%3v-%4h-%3z"_s.arg(number(left), number(bottom), number(width), number(height));
}

} // namespace

void writeColumns(Html &html, const ChartText &words, const TimeScale &scale,
                  const QList<Lane> &lanes)
{
    int height = axisHeight;
    for (const Lane &lane : lanes)
        height += wordsHeight + lane.height + laneGap;
    openChart(html, words, height);
    writeAxis(html, scale, height);
    int top = 0;
    for (const Lane &lane : lanes) {
        writeLane(html, scale, lane, top);
        top += wordsHeight + lane.height + laneGap;
    }
    html.close();
}

void writeSparkline(Html &html, const ChartText &words, const TimeScale &scale,
                    const QList<Lane> &lanes)
{
    int height = 0;
    for (const Lane &lane : lanes)
        height += lane.height + 2;
    openImage(html, words,
              {{"class", u"spark"_s},
               {"role", u"img"_s},
               {"viewBox", u"0 0 %1 %2"_s.arg(number(sparkWidth), QString::number(height))},
               {"preserveAspectRatio", u"none"_s},
               {"width", u"100%"_s},
               {"height", QString::number(height)}});
    int bottom = 0;
    for (const Lane &lane : lanes) {
        bottom += lane.height + 1;
        QString path;
        for (int part = 0; part < lane.values.size(); ++part) {
            if (lane.values[part] <= 0)
                continue;
            const double left = sparkWidth * scale.position(scale.edge(part));
            const double right = sparkWidth * scale.position(scale.edge(part + 1));
            path +=
                columnPath(left, std::max(2.0, (right - left) * columnShare), bottom,
                           columnHeight(lane.values[part], highestOf(lane.values), lane.height));
        }
        if (!path.isEmpty()) {
            html.open("path", {{"d", path}, {"class", tone(lane.tone)}});
            html.close();
        }
        html.open("path",
                  {{"d", u"M0 %1h%2v1h-%2z"_s.arg(QString::number(bottom), number(sparkWidth))},
                   {"class", u"baseline"_s}});
        html.close();
        ++bottom;
    }
    html.close();
}

void writeBars(Html &html, const ChartText &words, const char *name, const QList<int> &values,
               int highest)
{
    openImage(html, words,
              {{"class", u"spark"_s},
               {"role", u"img"_s},
               {"viewBox", u"0 0 %1 %2"_s.arg(number(barsWidth), QString::number(barsHeight + 1))},
               {"preserveAspectRatio", u"none"_s},
               {"width", u"100%"_s},
               {"height", QString::number(barsHeight + 1)}});
    const double step = barsWidth / static_cast<double>(std::max<qsizetype>(1, values.size()));
    QString path;
    for (int index = 0; index < values.size(); ++index) {
        if (values[index] > 0)
            path += columnPath(step * index, step * columnShare, barsHeight,
                               columnHeight(values[index], highest, barsHeight));
    }
    html.open("path", {{"d", path}, {"class", tone(name)}});
    html.close();
    html.open("path",
              {{"d", u"M0 %1h%2v1h-%2z"_s.arg(QString::number(barsHeight), number(barsWidth))},
               {"class", u"baseline"_s}});
    html.close(2);
}

void writeLines(Html &html, const ChartText &words, const TimeScale &scale,
                const QList<Line> &lines)
{
    const int step = wordsHeight + lineHeight + lineGap;
    const int height = static_cast<int>(lines.size()) * step + axisHeight;
    openChart(html, words, height);
    writeAxis(html, scale, height);
    int top = 0;
    for (const Line &line : lines) {
        writeWords(html, line.left, line.right, top);
        const int middle = top + wordsHeight + lineHeight / 2;
        writeLine(html, 0, 1, middle, middle, "base");
        double drawn = -1;
        for (const Stretch &stretch : line.stretches) {
            const double end = scale.position(stretch.end);
            // What would be drawn within the former one adds nothing.
            if (end <= drawn)
                continue;
            const double begin = std::min(scale.position(stretch.begin), 1 - shortestStretch);
            drawn = std::max(end, begin + shortestStretch);
            html.open("rect", {{"x", percent(begin)},
                               {"y", QString::number(top + wordsHeight)},
                               {"width", percent(drawn - begin)},
                               {"height", QString::number(lineHeight)},
                               {"class", tone(line.tone)}});
            html.close();
        }
        top += step;
    }
    html.close();
}

} // namespace queuectl
