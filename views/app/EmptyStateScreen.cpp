#include "views/app/EmptyStateScreen.h"

#include "views/common/AppIcons.h"

#include <QLabel>
#include <QVBoxLayout>

EmptyStateScreen::EmptyStateScreen(MenuDestination destination, QWidget *parent)
    : DestinationScreen(parent), m_destination(destination)
{
    setObjectName(QStringLiteral("emptyState.") + MenuDestinations::rawValue(destination));

    auto *icon = new QLabel(this);
    icon->setPixmap(AppIcons::destinationIcon(destination).pixmap(QSize(64, 64)));
    icon->setAlignment(Qt::AlignCenter);
    icon->setEnabled(false);

    auto *title = new QLabel(MenuDestinations::title(destination), this);
    title->setObjectName(QStringLiteral("emptyStateTitle"));
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);

    auto *text = new QLabel(description(destination), this);
    text->setObjectName(QStringLiteral("emptyStateText"));
    text->setWordWrap(true);
    text->setAlignment(Qt::AlignCenter);
    text->setFixedWidth(460);
    // A centered item gets no height-for-width from its layout: the label says its height itself.
    text->setMinimumHeight(text->heightForWidth(460));

    auto *note = new QLabel(notBuiltText(), this);
    note->setObjectName(QStringLiteral("emptyStateNote"));
    note->setAlignment(Qt::AlignCenter);
    note->setEnabled(false);

    auto *layout = new QVBoxLayout(this);
    layout->addStretch(3);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    layout->addSpacing(12);
    layout->addWidget(title, 0, Qt::AlignHCenter);
    layout->addSpacing(6);
    layout->addWidget(text, 0, Qt::AlignHCenter);
    layout->addSpacing(10);
    layout->addWidget(note, 0, Qt::AlignHCenter);
    layout->addStretch(4);
}

QString EmptyStateScreen::description(MenuDestination destination)
{
    switch (destination) {
    case MenuDestination::menuServerConfig:
        return QStringLiteral("The server's name, port and interface, its Start and Stop controls and its log "
                              "will appear here.");
    case MenuDestination::menuPromptConfig:
        return QStringLiteral("Reusable prompt templates and their arguments will be listed and edited here.");
    case MenuDestination::menuResourceConfig:
        return QStringLiteral("Resources that give MCP clients context data, with their URI, MIME type and "
                              "annotations, will be listed and edited here.");
    case MenuDestination::menuToolConfig:
        return QStringLiteral("Tools, with their input and output schemas and the script, plug-in or built-in "
                              "handler that runs them, will be listed and edited here.");
    case MenuDestination::menuScriptEditor:
        return QStringLiteral("The editor for tool scripts, with highlighting, search and replace and a runner "
                              "to try a script, will open here.");
    case MenuDestination::menuPluginManager:
        return QStringLiteral("Native tool plug-ins will be listed, added and enabled here.");
    case MenuDestination::menuAIChat:
        return QStringLiteral("A chat with a language model that can call the tools of this server will open "
                              "here.");
    case MenuDestination::menuAbout:
        break;
    }
    return QString();
}

QString EmptyStateScreen::notBuiltText() { return QStringLiteral("This screen is not part of this build yet."); }
