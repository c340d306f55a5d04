#pragma once

#include "app/AppSettingsSection.h"

#include <QPointer>
#include <QWidget>
#include <functional>

class QTabWidget;

// The settings window, "Kelvara - Settings": one tab per section whose feature is part of
// the build, in the order of AppSettingsSection. One window for the application.
class AppSettingsWindow : public QWidget {
    Q_OBJECT

public:
    using SectionFactory = std::function<QWidget *(QWidget *parent)>;

    // A feature makes its section known; the window shows it from its next opening on.
    static void registerSection(AppSettingsSection section, SectionFactory factory);
    static bool hasSection(AppSettingsSection section);

    // Opens the window, or brings the open one to the front; gives it.
    static AppSettingsWindow *showSettings(AppSettingsSection section = AppSettingsSection::bookmarks);
    // The open window, if any (isPresenting).
    static AppSettingsWindow *current();

    QTabWidget *tabs() const { return m_tabs; }
    void selectSection(AppSettingsSection section);
    QList<AppSettingsSection> sections() const { return m_sections; }

private:
    explicit AppSettingsWindow(QWidget *parent = nullptr);

    QTabWidget *m_tabs;
    QList<AppSettingsSection> m_sections;
};
