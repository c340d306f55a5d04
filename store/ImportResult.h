#pragma once

#include <QStringList>

// What an import read: the count of files of each kind that became records, and the
// failures of single files (or the one line of a missing folder).
struct ImportResult {
    int importedTools = 0;
    QStringList toolsErrors;
    int importedResources = 0;
    QStringList resourcesErrors;
    int importedPrompts = 0;
    QStringList promptsErrors;

    bool hasErrors() const { return !toolsErrors.isEmpty() || !resourcesErrors.isEmpty() || !promptsErrors.isEmpty(); }
    QStringList allErrors() const { return toolsErrors + resourcesErrors + promptsErrors; }
};
