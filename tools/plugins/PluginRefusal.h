#pragma once

#include <QString>

// Why the plug-in registry did not do what it was asked, in the words of the alert that
// tells the user: "Error" with the reason, or "Information" when a plug-in of that name is
// registered already (nothing went wrong; the user may keep the request open).
struct PluginRefusal {
    QString message;
    bool alreadyRegistered = false;

    QString title() const { return alreadyRegistered ? QStringLiteral("Information") : QStringLiteral("Error"); }

    static PluginRefusal failure(const QString &message) { return PluginRefusal{message, false}; }
    static PluginRefusal duplicate(const QString &name)
    {
        return PluginRefusal{QStringLiteral("The custom tool plugin ") + name + QStringLiteral(" already exist."), true};
    }
};
