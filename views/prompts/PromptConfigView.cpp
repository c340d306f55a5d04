#include "views/prompts/PromptConfigView.h"

#include "views/common/OverflowRow.h"

#include "views/common/CommandButton.h"

#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "app/config/PromptConfigController.h"
#include "store/PromptQueryService.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

PromptConfigView::PromptConfigView(PromptConfigController *controller, QWidget *parent)
    : ConfigScreen(controller, parent),
      m_controller(static_cast<PromptConfigController *>(activeController()))
{
    // Delete asks the controller once the focus has moved to the list.
    const auto deletePrompt = [this] {
        m_controller->setFocus(PromptConfigController::promptListView);
        QMetaObject::invokeMethod(this, [this] { m_controller->deleteButtonTapped(); }, Qt::QueuedConnection);
    };
    build({.objectName = QStringLiteral("promptConfigView"),
           .title = PromptConfigController::screenTitle,
           .lead = PromptConfigController::leadText,
           .helpFile = PromptConfigController::helpFile,
           .helpTitle = QStringLiteral("Kelvara - Prompts"),
           .filterName = QStringLiteral("promptFilter"),
           .filterPlaceholder = PromptConfigController::filterPlaceholder,
           .listName = QStringLiteral("promptList"),
           .listFocus = PromptConfigController::promptListView,
           .listButtons = {{"add", "New Prompt"}, {"delete", "Remove"}, {"copy", "Copy"}, {"paste", "Paste"}},
           .paneKey = UserDefaultsKeys::spPromptConfigView,
           .form = [this] { return makeForm(); },
           .emptyText = QStringLiteral("Select a prompt to view details or click 'New Prompt'."),
           .deleteCommand = deletePrompt,
           .deleteTitle = QStringLiteral("Delete Prompt"),
           .deleteText = [this] { return m_controller->deletePromptText(); }});

    commitAsTyped(m_name, [this] { m_controller->setName(m_name->text()); });
    commitAsTyped(m_description, [this] { m_controller->setPromptDescription(m_description->text()); });
    connect(m_template, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_showing)
            m_controller->setTemplateText(m_template->toPlainText());
    });
    connect(button(QStringLiteral("addArgument")), &QPushButton::clicked, m_controller, &PromptConfigController::addArgumentTapped);
    connect(button(QStringLiteral("newArgument")), &QPushButton::clicked, m_controller, &PromptConfigController::newArgumentTapped);
    list()->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(list(), &QListWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        // The row under the pointer is the one the menu acts on.
        if (QListWidgetItem *item = list()->itemAt(at))
            list()->setCurrentItem(item);
        makeRowMenu()->popup(list()->viewport()->mapToGlobal(at));
    });
    connect(button(QStringLiteral("editArgument")), &QPushButton::clicked, this, [this] {
        m_controller->setFocus(PromptConfigController::promptArgList);
        QMetaObject::invokeMethod(this, [this] { m_controller->editButtonTapped(); }, Qt::QueuedConnection);
    });
    connect(button(QStringLiteral("deleteArgument")), &QPushButton::clicked, this, [this] {
        m_controller->setFocus(PromptConfigController::promptArgList);
        QMetaObject::invokeMethod(this, [this] { m_controller->deleteButtonTapped(); }, Qt::QueuedConnection);
    });
    connect(m_arguments, &QListWidget::currentItemChanged, this, [this](QListWidgetItem *item) {
        if (m_showing || !item)
            return;
        m_controller->setSelectedArgument(item->data(Qt::UserRole).value<PromptArguments *>());
        m_controller->setFocus(PromptConfigController::promptArgList);
    });
    connect(m_controller, &PromptConfigController::argumentStateChanged, this, [this] {
        showSelection();
        if (!presentsForController())
            return;
        if (m_controller->showingAddArgument())
            showArgumentSheet(false);
        else if (m_controller->showingEditArgument())
            showArgumentSheet(true);
        confirmArgumentDeleteIfAsked();
    });
    rebuildList();
}

QLayout *PromptConfigView::makeForm()
{
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
    // With the messages beside the template the pane is narrow at 1024×720: the last
    // commands fold into "⋯" rather than squeeze their labels.
    auto *argumentButtons = new OverflowRow(this);
    for (const auto &[name, text] : {std::pair{"newArgument", "New Argument"}, {"addArgument", "Add Argument"},
                                     {"editArgument", "Edit Argument"}, {"deleteArgument", "Remove Argument"}})
        argumentButtons->addFoldable(makeButton(this, QString::fromLatin1(name), QString::fromUtf8(text)));
    const QKeySequence addKeys(QStringLiteral("Ctrl+T"));
    button(QStringLiteral("addArgument"))->setText(CommandButton::label(QStringLiteral("Add Argument"), addKeys));
    button(QStringLiteral("addArgument"))->setShortcut(addKeys);

    auto *form = new QFormLayout;
    form->addRow(new QLabel(QStringLiteral("<b>Prompt Definition</b>"), this));
    form->addRow(QStringLiteral("Name:"), m_name);
    form->addRow(QStringLiteral("Description:"), m_description);
    form->addRow(QStringLiteral("Template:"), m_template);
    form->addRow(QStringLiteral("Messages:"), makeMessagesEditor());
    auto *page = new QVBoxLayout;
    page->addLayout(form);
    page->addWidget(m_argumentsTitle);
    page->addWidget(m_arguments, 1);
    page->addLayout(argumentButtons);
    page->addLayout(saveRow());
    return page;
}

QWidget *PromptConfigView::makeMessagesEditor()
{
    auto *editor = new QWidget(this);
    m_messages = new QPlainTextEdit(editor);
    m_messages->setObjectName(QStringLiteral("promptMessages"));
    m_messages->setPlaceholderText(
        QStringLiteral(R"([{"role": "user", "content": {"type": "text", "text": "About {{topic}}"}}])"));
    m_messages->setToolTip(QStringLiteral(
        "Optional: the messages the prompt gives, after the template, as a JSON list. Each is "
        "{\"role\": \"user\" or \"assistant\", \"content\": ...} with content of type text, image "
        "(data, mimeType), audio (data, mimeType) or resource (resource: uri, text or blob, mimeType)."));
    m_messages->setTabChangesFocus(true);
    // Room for a few lines; the argument list below keeps the rest of the height.
    m_messages->setMaximumHeight(m_messages->fontMetrics().lineSpacing() * 6);
    m_messagesProblem = new QLabel(editor);
    m_messagesProblem->setObjectName(QStringLiteral("promptMessagesProblem"));
    m_messagesProblem->setWordWrap(true);
    m_messagesProblem->hide();
    auto *column = new QVBoxLayout(editor);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(m_messages);
    column->addWidget(m_messagesProblem);
    connect(m_messages, &QPlainTextEdit::textChanged, this, [this] {
        if (m_showing)
            return;
        m_controller->setMessagesText(m_messages->toPlainText());
        const std::optional<QString> problem = m_controller->messagesProblem();
        m_messagesProblem->setText(QStringLiteral("\u26A0 ") + problem.value_or(QString()));
        m_messagesProblem->setVisible(problem.has_value());
    });
    return editor;
}

void PromptConfigView::showMessages()
{
    if (!m_messages->hasFocus() && m_messages->toPlainText() != m_controller->messagesText())
        m_messages->setPlainText(m_controller->messagesText());
    const std::optional<QString> problem = m_controller->messagesProblem();
    m_messagesProblem->setText(QStringLiteral("\u26A0 ") + problem.value_or(QString()));
    m_messagesProblem->setVisible(problem.has_value());
}

QMenu *PromptConfigView::makeRowMenu()
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("promptRowMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction *paste = menu->addAction(QStringLiteral("Paste"), m_controller, &PromptConfigController::pasteItem);
    paste->setObjectName(QStringLiteral("pastePrompt"));
    paste->setEnabled(m_controller->canPaste());
    QAction *duplicate =
        menu->addAction(QStringLiteral("Duplicate"), m_controller, &PromptConfigController::duplicateSelectedPrompt);
    duplicate->setObjectName(QStringLiteral("duplicatePrompt"));
    duplicate->setEnabled(m_controller->selectedPrompt() != nullptr);
    QAction *remove = menu->addAction(QStringLiteral("Remove"), this, [this] { button(QStringLiteral("delete"))->click(); });
    remove->setObjectName(QStringLiteral("removePrompt"));
    remove->setEnabled(button(QStringLiteral("delete"))->isEnabled());
    return menu;
}

void PromptConfigView::rebuildList()
{
    m_showing = true;
    list()->clear();
    for (PromptConfig *prompt : m_controller->filteredPrompts(filterField()->text()))
        addRow(PromptConfigController::rowName(prompt) + u'\n' + PromptConfigController::rowDescription(prompt) + u'\n' +
                   PromptConfigController::rowArguments(prompt),
               prompt);
    m_showing = false;
    showSelection();
}

void PromptConfigView::showSelection()
{
    PromptConfig *prompt = m_controller->selectedPrompt();
    showCommonState();
    // Remove and Copy act on the selected prompt wherever the focus is.
    button(QStringLiteral("delete"))->setEnabled(prompt && !m_controller->isAddingPrompt());
    button(QStringLiteral("copy"))->setEnabled(prompt != nullptr);
    button(QStringLiteral("editArgument"))->setEnabled(m_controller->selectedArgument() != nullptr);
    button(QStringLiteral("deleteArgument"))->setEnabled(m_controller->selectedArgument() != nullptr);
    if (!prompt)
        return;
    m_showing = true;
    if (!m_name->hasFocus() && m_name->text() != prompt->name().value_or(QString()))
        m_name->setText(prompt->name().value_or(QString()));
    if (!m_description->hasFocus() && m_description->text() != prompt->promptDescription().value_or(QString())) {
        m_description->setText(prompt->promptDescription().value_or(QString()));
        m_description->setCursorPosition(0);  // a long description shows its beginning
    }
    if (!m_template->hasFocus() && m_template->toPlainText() != prompt->templateText().value_or(QString()))
        m_template->setPlainText(prompt->templateText().value_or(QString()));
    showMessages();
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
    auto *offered = new QLineEdit(start.values, &sheet);
    offered->setObjectName(QStringLiteral("argumentValues"));
    offered->setPlaceholderText(QStringLiteral("Offered for completion: a, b, c"));
    auto *buttons = new QDialogButtonBox(&sheet);
    buttons->addButton(CommandButton::label(QStringLiteral("Save changes"), QKeySequence::Save), QDialogButtonBox::AcceptRole)->setShortcut(QKeySequence::Save);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole)->setToolTip(QStringLiteral("Leave unchanged"));
    connect(buttons, &QDialogButtonBox::accepted, &sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &sheet, &QDialog::reject);
    auto *form = new QFormLayout(&sheet);
    form->addRow(QStringLiteral("Name:"), name);
    form->addRow(QStringLiteral("Description:"), info);
    form->addRow(QStringLiteral("Required:"), required);
    form->addRow(QStringLiteral("Values:"), offered);
    form->addRow(buttons);
    const bool saved = sheet.exec() == QDialog::Accepted;
    const PromptConfigController::ArgumentForm values{name->text(), info->text(), required->isChecked(), offered->text()};
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
