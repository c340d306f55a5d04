#pragma once

#include <QList>
#include <QString>

// The sections of the settings window, in order.
enum class AppSettingsSection { bookmarks, privacy, scriptEditor };

namespace AppSettingsSections {

inline const QList<AppSettingsSection> &all()
{
    static const QList<AppSettingsSection> list = {AppSettingsSection::bookmarks, AppSettingsSection::privacy,
                                                           AppSettingsSection::scriptEditor};
    return list;
}

inline QString label(AppSettingsSection section)
{
    switch (section) {
    case AppSettingsSection::bookmarks:
        return QStringLiteral("Security Scopes");
    case AppSettingsSection::privacy:
        return QStringLiteral("Privacy");
    case AppSettingsSection::scriptEditor:
        return QStringLiteral("Script Editor");
    }
    return QString();
}

}  // namespace AppSettingsSections
