#pragma once

#include <QStringList>

// What an export wrote: the count of records of each kind and the failures of single records.
struct ExportResult {
    int exportedTools = 0;
    QStringList toolsErrors;
    int exportedResources = 0;
    QStringList resourcesErrors;
    int exportedPrompts = 0;
    QStringList promptsErrors;

    bool hasErrors() const { return !toolsErrors.isEmpty() || !resourcesErrors.isEmpty() || !promptsErrors.isEmpty(); }
    // The failures of all three kinds, tools first.
    QStringList allErrors() const { return toolsErrors + resourcesErrors + promptsErrors; }
};
