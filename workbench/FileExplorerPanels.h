#pragma once

#include <QString>
#include <optional>

// What the file explorer asks the user, implemented by the screen (and by fakes in tests).
class FileExplorerPanels {
public:
    virtual ~FileExplorerPanels() = default;
    // "Select Directory", folders only.
    virtual std::optional<QString> chooseDirectory() = 0;
    // A save panel in the folder proposing the name; the chosen path.
    virtual std::optional<QString> chooseNewFile(const QString &folder, const QString &proposedName) = 0;
    // "Rename "name"": the new name, or nullopt on "Cancel".
    virtual std::optional<QString> askNewName(const QString &name) = 0;
    // "Delete "name"", "This action cannot be undone.": true on "Delete".
    virtual bool confirmDelete(const QString &name) = 0;
    // "Copy file to..." / "Copy folder to...": the target path.
    virtual std::optional<QString> chooseCopyTarget(const QString &folder, const QString &message, const QString &proposedName) = 0;
    // "Select destination folder for "name"": the folder.
    virtual std::optional<QString> chooseMoveFolder(const QString &folder, const QString &message) = 0;
    // An informational alert with "OK".
    virtual void alert(const QString &title, const QString &text) = 0;
};
