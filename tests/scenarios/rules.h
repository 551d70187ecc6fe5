#pragma once

#include "rig/journalrows.h"

#include <QList>
#include <QString>
#include <QStringList>

/// Compares the rule of the catalogue that `queuectl why` tells for each kept message of the
/// journal with the scenario: the rule must list it. A difference for each message whose type has
/// the scenario in its own file; `title` is that of ScenarioSource.
QStringList ruleFindings(const QString &title, const QList<rig::JournalRow> &journal);
