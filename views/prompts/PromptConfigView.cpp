#include "views/prompts/PromptConfigView.h"

#include "store/PersistenceController.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptConfigController.h"
#include "store/PromptQueryService.h"
#include "views/app/AlertPresenter.h"
#include "views/chat/ReadOnlyTextView.h"

#include <QAction>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <functional>

namespace {

PromptConfigController *controllerOrNew(PromptConfigController *controller)
{
    return controller ? controller
                      : new PromptConfigController(PersistenceController::shared()->viewContext(), ConfigClipboard::shared());
}

}  // namespace

PromptConfigView::PromptConfigView(PromptConfigController *controller, QWidget *parent)
    : ConfigScreen(controllerOrNew(controller), parent),
      m_controller(static_cast<PromptConfigController *>(activeController()))
{
    if (!m_controller->parent())
        m_controller->setParent(this);
    setObjectName(QStringLiteral("promptConfigView"));
    QLayout *header = makeHeader(PromptConfigController::screenTitle, PromptConfigController::leadText,
                                 PromptConfigController::helpFile, QStringLiteral("Kelvara - Prompts"));

    m_filter = new QLineEdit(this);
    m_filter->setObjectName(QStringLiteral("promptFilter"));
    m_filter->setPlaceholderText(PromptConfigController::filterPlaceholder);
    m_filter->setClearButtonEnabled(true);
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("promptList"));
    m_list->setMinimumWidth(220);
    auto *listButtons = new QHBoxLayout;
    for (const auto &[name, text] : {std::pair{"add", "New Prompt"}, {"delete", "Remove"}, {"copy", "Copy"}, {"paste", "Paste"}})
        listButtons->addWidget(makeButton(this, QString::fromLatin1(name), QString::fromLatin1(text)));
    auto *left = new QVBoxLayout;
    left->addWidget(m_filter);
    left->addWidget(m_list, 1);
    left->addLayout(listButtons);

    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("promptName"));
    m_description = new QLineEdit(this);
    m_description->setObjectName(QStringLiteral("promptDescription"));
    m_template = new QPlainTextEdit(this);
    m_template->setObjectName(QStringLiteral("promptTemplate"));
    m_template->setPlaceholderText(QStringLiteral("Hello {name}"));
    m_argumentsTitle = new QLabel(this);
    m_arguments = new QListWidget(this);
    m_arguments->setObjectName(QStringLiteral("promptArgList"));
    auto *argumentButtons = new QHBoxLayout;
    for (const auto &[name, text] : {std::pair{"addArgument", "Add Argument ⌘+T"}, {"editArgument", "Edit Argument"},
                                     {"deleteArgument", "Remove Argument"}})
        argumentButtons->addWidget(makeButton(this, QString::fromLatin1(name), QString::fromLatin1(text)));
    button(QStringLiteral("addArgument"))->setShortcut(QKeySequence(QStringLiteral("Ctrl+T")));

    auto *form = new QFormLayout;
    form->addRow(new QLabel(QStringLiteral("<b>Prompt Definition</b>"), this));
    form->addRow(QStringLiteral("Name:"), m_name);
    form->addRow(QStringLiteral("Description:"), m_description);
    form->addRow(QStringLiteral("Template:"), m_template);
    auto *saveRow = new QHBoxLayout;
    saveRow->addStretch();
    saveRow->addWidget(makeButton(this, QStringLiteral("revert"), QStringLiteral("Revert")));
    saveRow->addWidget(makeButton(this, QStringLiteral("save"), QStringLiteral("Save")));
    auto *formPage = new QWidget(this);
    auto *formLayout = new QVBoxLayout(formPage);
    formLayout->addLayout(form);
    formLayout->addWidget(m_argumentsTitle);
    formLayout->addWidget(m_arguments, 1);
    formLayout->addLayout(argumentButtons);
    formLayout->addLayout(saveRow);
    auto *empty = new QLabel(QStringLiteral("Select a prompt to view details or click 'New Prompt'."), this);
    empty->setAlignment(Qt::AlignCenter);
    m_detail = new QStackedWidget(this);
    m_detail->addWidget(empty);
    m_detail->addWidget(formPage);

    auto *body = new QHBoxLayout;
    body->addLayout(left);
    body->addWidget(m_detail, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addLayout(body, 1);

    connect(m_name, &QLineEdit::editingFinished, this, [this] { m_controller->setName(m_name->text()); });
    connect(m_description, &QLineEdit::editingFinished, this,
            [this] { m_controller->setPromptDescription(m_description->text()); });
    connect(m_template, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_showing)
            m_controller->setTemplateText(m_template->toPlainText());
    });
    connect(button(QStringLiteral("add")), &QPushButton::clicked, m_controller, &PromptConfigController::addPromptTapped);
    connect(button(QStringLiteral("delete")), &QPushButton::clicked, this, [this] {
        m_controller->setFocus(PromptConfigController::promptListView);
        QMetaObject::invokeMethod(this, [this] { m_controller->deleteButtonTapped(); }, Qt::QueuedConnection);
    });
    connect(button(QStringLiteral("copy")), &QPushButton::clicked, m_controller, &PromptConfigController::copySelectedItem);
    connect(button(QStringLiteral("paste")), &QPushButton::clicked, m_controller, &PromptConfigController::pasteItem);
    connect(button(QStringLiteral("save")), &QPushButton::clicked, m_controller, &PromptConfigController::saveButtonTapped);
    connect(button(QStringLiteral("revert")), &QPushButton::clicked, m_controller, &PromptConfigController::revertButtonTapped);
    connect(button(QStringLiteral("addArgument")), &QPushButton::clicked, m_controller, &PromptConfigController::addArgumentTapped);
    connect(button(QStringLiteral("editArgument")), &QPushButton::clicked, this, [this] {
        m_controller->setFocus(PromptConfigController::promptArgList);
        QMetaObject::invokeMethod(this, [this] { m_controller->editButtonTapped(); }, Qt::QueuedConnection);
    });
    connect(button(QStringLiteral("deleteArgument")), &QPushButton::clicked, this, [this] {
        m_controller->setFocus(PromptConfigController::promptArgList);
        QMetaObject::invokeMethod(this, [this] { m_controller->deleteButtonTapped(); }, Qt::QueuedConnection);
    });
    connect(m_filter, &QLineEdit::textChanged, this, &PromptConfigView::rebuildList);
    connect(m_list, &QListWidget::currentItemChanged, this, [this](QListWidgetItem *item) {
        if (m_showing || !item)
            return;
        m_controller->setSelectedRecord(item->data(Qt::UserRole).value<PromptConfig *>());
        m_controller->setFocus(PromptConfigController::promptListView);
    });
    connect(m_arguments, &QListWidget::currentItemChanged, this, [this](QListWidgetItem *item) {
        if (m_showing || !item)
            return;
        m_controller->setSelectedArgument(item->data(Qt::UserRole).value<PromptArguments *>());
        m_controller->setFocus(PromptConfigController::promptArgList);
    });
    connect(m_controller, &PromptConfigController::argumentStateChanged, this, [this] {
        showSelection();
        if (m_controller->showingAddArgument())
            showArgumentSheet(false);
        else if (m_controller->showingEditArgument())
            showArgumentSheet(true);
        confirmArgumentDeleteIfAsked();
    });
    bindController(
        m_list,
        [this] {
            m_controller->setFocus(PromptConfigController::promptListView);
            QMetaObject::invokeMethod(this, [this] { m_controller->deleteButtonTapped(); }, Qt::QueuedConnection);
        },
        [] { return QStringLiteral("Delete Prompt"); }, [this] { return m_controller->deletePromptText(); });
    rebuildList();
}

void PromptConfigView::rebuildList()
{
    m_showing = true;
    m_list->clear();
    for (PromptConfig *prompt : m_controller->filteredPrompts(m_filter->text())) {
        auto *item = new QListWidgetItem(PromptConfigController::rowName(prompt) + u'\n' +
                                             PromptConfigController::rowDescription(prompt) + u'\n' +
                                             PromptConfigController::rowArguments(prompt),
                                         m_list);
        item->setData(Qt::UserRole, QVariant::fromValue(prompt));
        if (prompt == m_controller->selectedPrompt())
            m_list->setCurrentItem(item);
    }
    m_showing = false;
    showSelection();
}

void PromptConfigView::showSelection()
{
    PromptConfig *prompt = m_controller->selectedPrompt();
    m_detail->setCurrentIndex(prompt ? 1 : 0);
    button(QStringLiteral("add"))->setEnabled(m_controller->canAdd());
    button(QStringLiteral("delete"))->setEnabled(prompt && !m_controller->isAddingPrompt());
    button(QStringLiteral("copy"))->setEnabled(prompt != nullptr);
    button(QStringLiteral("paste"))->setEnabled(m_controller->canPaste());
    button(QStringLiteral("save"))->setEnabled(m_controller->hasUnsavedChanges());
    button(QStringLiteral("revert"))->setEnabled(m_controller->hasUnsavedChanges());
    button(QStringLiteral("editArgument"))->setEnabled(m_controller->selectedArgument() != nullptr);
    button(QStringLiteral("deleteArgument"))->setEnabled(m_controller->selectedArgument() != nullptr);
    if (!prompt)
        return;
    m_showing = true;
    if (!m_name->hasFocus() && m_name->text() != prompt->name().value_or(QString()))
        m_name->setText(prompt->name().value_or(QString()));
    if (!m_description->hasFocus() && m_description->text() != prompt->promptDescription().value_or(QString()))
        m_description->setText(prompt->promptDescription().value_or(QString()));
    if (!m_template->hasFocus() && m_template->toPlainText() != prompt->templateText().value_or(QString()))
        m_template->setPlainText(prompt->templateText().value_or(QString()));
    const QList<PromptArguments *> arguments = PromptQueryService::sortedArguments(prompt);
    m_argumentsTitle->setText(arguments.isEmpty() ? QStringLiteral("No arguments defined")
                                                  : QStringLiteral("<b>Arguments (%1)</b>").arg(arguments.size()));
    m_arguments->clear();
    for (PromptArguments *argument : arguments) {
        auto *item = new QListWidgetItem(PromptConfigController::argumentRowName(argument) + QStringLiteral("  —  ") +
                                             PromptConfigController::argumentRowKind(argument),
                                         m_arguments);
        item->setData(Qt::UserRole, QVariant::fromValue(argument));
        if (argument == m_controller->selectedArgument())
            m_arguments->setCurrentItem(item);
    }
    m_showing = false;
}

void PromptConfigView::showArgumentSheet(bool editing)
{
    QDialog sheet(this);
    sheet.setObjectName(editing ? QStringLiteral("editArgumentSheet") : QStringLiteral("addArgumentSheet"));
    sheet.setWindowTitle(editing ? QStringLiteral("Edit Argument") : QStringLiteral("Add Argument"));
    const PromptConfigController::ArgumentForm start = editing ? m_controller->editForm() : PromptConfigController::ArgumentForm{};
    auto *name = new QLineEdit(start.name, &sheet);
    name->setObjectName(QStringLiteral("argumentName"));
    auto *info = new QLineEdit(start.info, &sheet);
    info->setObjectName(QStringLiteral("argumentInfo"));
    auto *required = new QCheckBox(&sheet);
    required->setObjectName(QStringLiteral("argumentRequired"));
    required->setChecked(start.required);
    auto *buttons = new QDialogButtonBox(&sheet);
    buttons->addButton(QStringLiteral("Save changes ⌘S"), QDialogButtonBox::AcceptRole)->setShortcut(QKeySequence::Save);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole)->setToolTip(QStringLiteral("Leave unchanged"));
    connect(buttons, &QDialogButtonBox::accepted, &sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &sheet, &QDialog::reject);
    auto *form = new QFormLayout(&sheet);
    form->addRow(QStringLiteral("Name:"), name);
    form->addRow(QStringLiteral("Description:"), info);
    form->addRow(QStringLiteral("Required:"), required);
    form->addRow(buttons);
    const bool saved = sheet.exec() == QDialog::Accepted;
    const PromptConfigController::ArgumentForm values{name->text(), info->text(), required->isChecked()};
    if (editing)
        saved ? m_controller->saveEditedArgument(values) : m_controller->cancelEditArgument();
    else
        saved ? m_controller->saveNewArgument(values) : m_controller->cancelAddArgument();
}

void PromptConfigView::confirmArgumentDeleteIfAsked()
{
    if (!m_controller->showingDeleteArgumentConfirmation() || openBox(QStringLiteral("deleteArgumentConfirmation")))
        return;
    confirm(this, QStringLiteral("deleteArgumentConfirmation"), QStringLiteral("Delete Argument"),
            m_controller->deleteArgumentText(), [this] { m_controller->confirmDeleteArgument(); },
            [this] { m_controller->cancelDeleteArgument(); });
}
