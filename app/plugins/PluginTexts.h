#pragma once

#include <QString>
#include <QStringList>

// The words of the plug-in screens and of their command-line counterpart, kept beside the
// controller so that the window and `kelvara plugin` say the same and tests can read them.
namespace PluginTexts {

// The manager.
inline const QString managerTitle = QStringLiteral("Plugin Manager");
inline const QString managerSubtitle = QStringLiteral("Native plugin management. Add your own plugins.");
// The File menu's item at this screen says the same and has the same keys.
inline const QString registerButton = QStringLiteral("Add Plugin");
inline const QString uninstallButton = QStringLiteral("Uninstall selected plugin");
inline const QString managerNote = QStringLiteral(
    "Due to security requirements, plugins and bundles must be explicitly confirmed by the user. When enabling a "
    "plugin, you will be prompted to confirm the plugin.");
inline const QString loading = QStringLiteral("Loading plugins...");
inline const QString noPlugins = QStringLiteral("No plugins registered yet.");
// Said wherever a plug-in is let in: what an enabled plug-in is allowed to do.
inline const QString inProcessWarning = QStringLiteral(
    "An enabled plugin runs inside Kelvara's own process with your user rights: it can read, change and send "
    "anything you can. Register and enable only plugins you trust.");
// Said where a plug-in's details are shown before the question.
inline const QString inspectionNote = QStringLiteral(
    "Inspecting a library runs its code: these details were read in a separate, short-lived process, and nothing "
    "of the library has run inside Kelvara.");

// The approval dialog.
inline const QString approvalTitle = QStringLiteral("Review the plugin details before registering");
inline const QString approvalInformation = QStringLiteral("Plugin Information");
inline const QString approveButton = QStringLiteral("Approve & Register");
inline const QString denyButton = QStringLiteral("Deny registration");
inline const QString noCapabilities = QStringLiteral("No capabilities defined");

// The security information sheet. Linux has no sandbox around a plug-in; the sheet says
// what holds here instead.
inline const QString securityTitle = QStringLiteral("Plugin Security Information");
inline const QString securitySubtitle = QStringLiteral("Review security and plugin details");
inline const QStringList securityPoints = {
    QStringLiteral("Each plugin must be authorized before execution"),
    QStringLiteral("Plugins are loaded from their origin folder"),
    QStringLiteral("The plugin is loaded into Kelvara's own process and runs with your user rights, without a "
                   "sandbox"),
};

// The enable wizard. Linux itself would let Kelvara load any library at any time; the rule
// is Kelvara's own, and the wizard says so.
inline const QString wizardTitle = QStringLiteral("Enable Plugin");
inline const QString wizardHeading = QStringLiteral("User Confirmation Required");
inline const QString wizardModelTitle = QStringLiteral("Kelvara Plugin Security Model");
inline const QStringList wizardModelLines = {
    QStringLiteral("Kelvara never loads plugins and bundles automatically at app startup:"),
    QStringLiteral("after every start each plugin is disabled until you enable it again."),
    QStringLiteral("You must explicitly confirm the plugin to load the plugin: select its file again below."),
    QStringLiteral("This confirmation is required every time you enable a plugin."),
};
inline const QString wizardChooseButton = QStringLiteral("Select Plugin File...");

// The uninstall confirmation.
inline const QString uninstallTitle = QStringLiteral("Uninstall Plugin");
inline QString uninstallQuestion(const QString &name)
{
    return QStringLiteral("Are you sure you want to uninstall '") + name + QStringLiteral("'?");
}

}  // namespace PluginTexts
