#pragma once

#include <QString>
#include <optional>

// What the script editor asks the user, implemented by the screen (and by fakes in tests).
class ScriptFilePanels {
public:
    enum class SaveAnswer { Save, DontSave, Cancel };

    virtual ~ScriptFilePanels() = default;
    // "Save changes to file '<name>'" (or "Save changes to file?"), "Your changes will be lost
    // if you don't save them.", Save / Don't Save / Cancel.
    virtual SaveAnswer askToSave(const QString &title, const QString &text) = 0;
    // "Save Script", JavaScript files, proposing the name; nullopt when declined.
    virtual std::optional<QString> chooseSaveLocation(const QString &proposedName) = 0;
};
