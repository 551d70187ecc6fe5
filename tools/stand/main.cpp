#include "tools/stand/samplestand.h"
#include "tools/stand/scenarioerror.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

/// Plays the outside services for a running service and shows its sample messages being delivered.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Puts sample messages into the queue, plays the outside services and shows the deliveries."_s);
    parser.addHelpOption();
    const QCommandLineOption root({u"root"_s}, u"The service's QUEUE_ROOT."_s, u"folder"_s);
    const QCommandLineOption scenarios({u"scenarios"_s}, u"Where the scenarios lie."_s,
                                       u"folder"_s);
    const QCommandLineOption writeSettings(
        {u"write-settings"_s},
        u"Only write the settings that lead to the stand; call before the service starts."_s);
    parser.addOptions({root, scenarios, writeSettings});
    parser.process(application);
    if (!parser.isSet(root) || !parser.isSet(scenarios)) {
        std::fputs(qPrintable(parser.helpText()), stderr);
        return EXIT_FAILURE;
    }
    try {
        stand::SampleStand sampleStand(parser.value(root), parser.value(scenarios));
        if (parser.isSet(writeSettings)) {
            sampleStand.writeSettings();
            return EXIT_SUCCESS;
        }
        return sampleStand.run() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const stand::ScenarioError &error) {
        std::fputs(qPrintable(error.text() + u'\n'), stderr);
        return EXIT_FAILURE;
    }
}
