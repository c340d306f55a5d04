#pragma once

#include <QList>
#include <QString>

// The sections of the settings window, in order.
enum class AppSettingsSection { bookmarks, scriptEditor };

namespace AppSettingsSections {

inline const QList<AppSettingsSection> &all()
{
    static const QList<AppSettingsSection> list = {AppSettingsSection::bookmarks, AppSettingsSection::scriptEditor};
    return list;
}

inline QString label(AppSettingsSection section)
{
    switch (section) {
    case AppSettingsSection::bookmarks:
        return QStringLiteral("Security Scopes");
    case AppSettingsSection::scriptEditor:
        return QStringLiteral("Script Editor");
    }
    return QString();
}

}  // namespace AppSettingsSections
