#pragma once

#include <QString>
#include <QStringList>

// What an open-file panel is asked to show: the words, what may be chosen and where it
// starts. The panel allows one selection and never offers to create folders.
struct OpenPanelRequest {
    QString message;
    QString prompt = QStringLiteral("Grant Access");  // the confirm button
    bool canChooseFiles = true;
    bool canChooseDirectories = true;
    // Extensions without the dot, lower case; empty lets any item through.
    QStringList allowedExtensions;
    // Folders whose names carry one of allowedExtensions are offered as single items
    // (plug-in bundles are folders).
    bool treatsPackagesAsFiles = false;
    QString directory;  // the folder the panel starts in; the home folder when empty
    QString fileName;   // a name to preselect, or empty
};
