#include "views/common/ConfigScreen.h"

#include "views/common/LayoutMetrics.h"
#include "views/common/RecordRowDelegate.h"

#include "app/config/StoreBackedController.h"
#include "store/StoreRecord.h"
#include "views/common/AlertPresenter.h"
#include "views/common/ReadOnlyTextView.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

ConfigScreen::ConfigScreen(StoreBackedController *controller, QWidget *parent)
    : DestinationScreen(parent), m_base(controller)
{
    if (!m_base->parent())
        m_base->setParent(this);
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

void ConfigScreen::build(const Parts &parts)
{
    setObjectName(parts.objectName);
    QLayout *header = makeHeader(parts);
    QLayout *toolbar = parts.toolbar ? parts.toolbar() : nullptr;

    m_filter = new QLineEdit(this);
    m_filter->setObjectName(parts.filterName);
    m_filter->setPlaceholderText(parts.filterPlaceholder);
    m_filter->setClearButtonEnabled(true);
    m_list = new QListWidget(this);
    m_list->setObjectName(parts.listName);
    m_list->setMinimumWidth(parts.listWidth);
    m_list->setItemDelegate(new RecordRowDelegate(m_list));
    m_list->setResizeMode(QListView::Adjust);  // the rows follow the list's width
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);  // and elide at its edge
    auto *left = new QVBoxLayout;
    left->addWidget(m_filter);
    left->addWidget(m_list, 1);
    if (!parts.listButtons.empty()) {
        auto *listButtons = new QHBoxLayout;
        for (const auto &[name, text] : parts.listButtons)
            listButtons->addWidget(makeButton(this, QString::fromLatin1(name), QString::fromUtf8(text)));
        left->addLayout(listButtons);
    }

    QLayout *form = parts.form();
    auto *formPage = new QWidget(this);
    formPage->setLayout(form);
    auto *empty = new QLabel(parts.emptyText, this);
    empty->setAlignment(Qt::AlignCenter);
    empty->setWordWrap(parts.emptyTextWraps);
    m_detail = new QStackedWidget(this);
    m_detail->addWidget(empty);
    m_detail->addWidget(formPage);

    auto *body = new QHBoxLayout;
    body->setSpacing(LayoutMetrics::sectionSpacing);
    body->addLayout(left);
    body->addWidget(m_detail, 1);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(LayoutMetrics::screenMargin, LayoutMetrics::screenMargin, LayoutMetrics::screenMargin,
                               LayoutMetrics::screenMargin);
    layout->setSpacing(LayoutMetrics::spacing);
    layout->addLayout(header);
    if (toolbar)
        layout->addLayout(toolbar);
    layout->addLayout(body, 1);

    connect(m_filter, &QLineEdit::textChanged, this, &ConfigScreen::applyFilter);
    connect(m_list, &QListWidget::currentItemChanged, this, [this, focus = parts.listFocus](QListWidgetItem *item) {
        if (m_showing || !item)
            return;
        m_base->setSelectedRecord(recordOf(item));
        m_base->setFocus(focus);
    });
    connect(button(QStringLiteral("add")), &QPushButton::clicked, m_base, &StoreBackedController::addTapped);
    connect(button(QStringLiteral("delete")), &QPushButton::clicked, this, parts.deleteCommand);
    connect(button(QStringLiteral("copy")), &QPushButton::clicked, m_base, &StoreBackedController::copySelectedItem);
    connect(button(QStringLiteral("paste")), &QPushButton::clicked, m_base, &StoreBackedController::pasteItem);
    connect(button(QStringLiteral("save")), &QPushButton::clicked, m_base, &StoreBackedController::saveTapped);
    connect(button(QStringLiteral("revert")), &QPushButton::clicked, m_base, &StoreBackedController::revertTapped);
    bindController(parts);
}

QLayout *ConfigScreen::saveRow()
{
    auto *row = new QHBoxLayout;
    row->addStretch();
    row->addWidget(makeButton(this, QStringLiteral("revert"), QStringLiteral("Revert")));
    row->addWidget(makeButton(this, QStringLiteral("save"), QStringLiteral("Save")));
    return row;
}

void ConfigScreen::addRow(const QString &text, StoreRecord *record)
{
    auto *item = new QListWidgetItem(text, m_list);
    item->setData(Qt::UserRole, QVariant::fromValue(record));
    if (record == m_base->selectedRecord())
        m_list->setCurrentItem(item);
}

StoreRecord *ConfigScreen::recordOf(const QListWidgetItem *item)
{
    return item->data(Qt::UserRole).value<StoreRecord *>();
}

void ConfigScreen::showCommonState()
{
    m_detail->setCurrentIndex(m_base->selectedRecord() ? 1 : 0);
    button(QStringLiteral("add"))->setEnabled(m_base->canAdd());
    button(QStringLiteral("delete"))->setEnabled(m_base->canDelete());
    button(QStringLiteral("copy"))->setEnabled(m_base->canCopy());
    button(QStringLiteral("paste"))->setEnabled(m_base->canPaste());
    button(QStringLiteral("save"))->setEnabled(m_base->hasUnsavedChanges());
    button(QStringLiteral("revert"))->setEnabled(m_base->hasUnsavedChanges());
}

QLayout *ConfigScreen::makeHeader(const Parts &parts)
{
    auto *help = makeButton(this, QStringLiteral("help"), QStringLiteral("?"));
    help->setFixedWidth(28);
    connect(help, &QPushButton::clicked, this,
            [file = parts.helpFile, title = parts.helpTitle] { ReadOnlyTextView::showDocument(file, title); });
    auto *titles = new QVBoxLayout;
    titles->addWidget(new QLabel(QStringLiteral("<b>%1</b>").arg(parts.title), this));
    titles->addWidget(new QLabel(parts.lead, this));
    auto *header = new QHBoxLayout;
    header->addLayout(titles, 1);
    header->addWidget(help, 0, Qt::AlignTop);
    return header;
}

void ConfigScreen::bindController(const Parts &parts)
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
    connect(m_base, &StoreBackedController::showingDeleteConfirmationChanged, this,
            [this, title = parts.deleteTitle, text = parts.deleteText] {
                if (m_base->showingDeleteConfirmation())
                    confirm(this, QStringLiteral("deleteConfirmation"), title, text(), [this] { m_base->confirmDelete(); },
                            [this] { m_base->cancelDelete(); });
            });
    // Copy, paste and delete from the keyboard while the list has the focus.
    for (const auto &[keys, run] : std::initializer_list<std::pair<QKeySequence, std::function<void()>>>{
             {QKeySequence::Copy, [this] { m_base->copySelectedItem(); }},
             {QKeySequence::Paste, [this] { m_base->pasteItem(); }},
             {QKeySequence::Delete, parts.deleteCommand}}) {
        auto *action = new QAction(m_list);
        action->setShortcut(keys);
        action->setShortcutContext(Qt::WidgetShortcut);
        connect(action, &QAction::triggered, this, run);
        m_list->addAction(action);
    }
    AlertPresenter::bind(m_base, this);
}

void ConfigScreen::commitAsTyped(QLineEdit *field, std::function<void()> commit)
{
    connect(field, &QLineEdit::textEdited, this, [commit] { commit(); });
    connect(field, &QLineEdit::editingFinished, this, [commit] { commit(); });
}
