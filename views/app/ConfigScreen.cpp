#include "views/app/ConfigScreen.h"

#include "store/StoreBackedController.h"
#include "views/app/AlertPresenter.h"
#include "views/chat/ReadOnlyTextView.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

ConfigScreen::ConfigScreen(StoreBackedController *controller, QWidget *parent)
    : DestinationScreen(parent), m_base(controller)
{
}

AbstractController *ConfigScreen::activeController() const
{
    return m_base;
}

bool ConfigScreen::handlesCommand(MenuCommand command) const
{
    return command == MenuCommand::NewItem || command == MenuCommand::Save;
}

void ConfigScreen::performCommand(MenuCommand command)
{
    if (command == MenuCommand::NewItem)
        m_base->addTapped();
    else if (command == MenuCommand::Save)
        m_base->saveTapped();
}

QPushButton *ConfigScreen::button(const QString &name) const
{
    return findChild<QPushButton *>(name);
}

QPushButton *ConfigScreen::makeButton(QWidget *parent, const QString &name, const QString &text, const char *shortcut)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(name);
    if (shortcut)
        button->setShortcut(QKeySequence(QString::fromLatin1(shortcut)));
    return button;
}

void ConfigScreen::confirm(QWidget *parent, const QString &name, const QString &title, const QString &text,
                           std::function<void()> onDelete, std::function<void()> onCancel)
{
    auto *box = new QMessageBox(QMessageBox::Warning, title, text, QMessageBox::NoButton, parent);
    box->setObjectName(name);
    box->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton *remove = box->addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    QObject::connect(box, &QMessageBox::finished, parent, [box, remove, onDelete, onCancel] {
        box->clickedButton() == remove ? onDelete() : onCancel();
    });
    box->open();
}

bool ConfigScreen::openBox(const QString &name) const
{
    for (QMessageBox *box : findChildren<QMessageBox *>(name)) {
        if (box->isVisible())
            return true;
    }
    return false;
}

QLayout *ConfigScreen::makeHeader(const QString &title, const QString &lead, const QString &helpFile,
                                  const QString &helpTitle)
{
    auto *help = makeButton(this, QStringLiteral("help"), QStringLiteral("?"));
    help->setFixedWidth(28);
    connect(help, &QPushButton::clicked, this, [helpFile, helpTitle] { ReadOnlyTextView::showDocument(helpFile, helpTitle); });
    auto *titles = new QVBoxLayout;
    titles->addWidget(new QLabel(QStringLiteral("<b>%1</b>").arg(title), this));
    titles->addWidget(new QLabel(lead, this));
    auto *header = new QHBoxLayout;
    header->addLayout(titles, 1);
    header->addWidget(help, 0, Qt::AlignTop);
    return header;
}

void ConfigScreen::bindController(QListWidget *list, std::function<void()> deleteCommand,
                                  std::function<QString()> deleteTitle, std::function<QString()> deleteText)
{
    connect(m_base, &StoreBackedController::recordsChanged, this, &ConfigScreen::rebuildList);
    connect(m_base, &StoreBackedController::selectedRecordChanged, this, &ConfigScreen::showSelection);
    connect(m_base, &AbstractController::changed, this, [this] {
        showSelection();
        emit commandStateChanged();
    });
    connect(m_base, &StoreBackedController::hasUnsavedChangesChanged, this, [this] {
        rebuildList();
        emit commandStateChanged();
    });
    connect(m_base, &StoreBackedController::showingDeleteConfirmationChanged, this, [this, deleteTitle, deleteText] {
        if (m_base->showingDeleteConfirmation())
            confirm(this, QStringLiteral("deleteConfirmation"), deleteTitle(), deleteText(),
                    [this] { m_base->confirmDelete(); }, [this] { m_base->cancelDelete(); });
    });
    // Copy, paste and delete from the keyboard while the list has the focus.
    for (const auto &[keys, run] : std::initializer_list<std::pair<QKeySequence, std::function<void()>>>{
             {QKeySequence::Copy, [this] { m_base->copySelectedItem(); }},
             {QKeySequence::Paste, [this] { m_base->pasteItem(); }},
             {QKeySequence::Delete, deleteCommand}}) {
        auto *action = new QAction(list);
        action->setShortcut(keys);
        action->setShortcutContext(Qt::WidgetShortcut);
        connect(action, &QAction::triggered, this, run);
        list->addAction(action);
    }
    AlertPresenter::bind(m_base, this);
}
