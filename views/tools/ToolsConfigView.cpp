#include "views/tools/ToolsConfigView.h"

#include "views/common/CommandButton.h"
#include "views/common/OverflowRow.h"

#include "store/ToolInputSchema.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "app/config/ToolsConfigController.h"
#include "store/ConfigurationController.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/BuiltinToolTable.h"
#include "tools/scripting/PluginScripting.h"
#include "views/tools/ToolResultView.h"
#include "views/tools/ToolSchemaEditorDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QJsonDocument>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

ToolsConfigView::ToolsConfigView(ToolsConfigController *controller, PluginController *plugins, QWidget *parent)
    : ConfigScreen(controller, parent),
      m_controller(static_cast<ToolsConfigController *>(activeController())),
      m_plugins(plugins)
{
    build({.objectName = QStringLiteral("toolsConfigView"),
           .title = ToolsConfigController::screenTitle,
           .lead = ToolsConfigController::leadText,
           .helpFile = ToolsConfigController::helpFile,
           .helpTitle = QStringLiteral("Kelvara - Tools"),
           .filterName = QStringLiteral("toolFilter"),
           .filterPlaceholder = ToolsConfigController::filterPlaceholder,
           .listName = QStringLiteral("toolList"),
           .listWidth = 230,
           .listFocus = ToolsConfigController::toolsListView,
           .toolbar = [this] { return makeToolbar(); },
           .paneKey = UserDefaultsKeys::spToolConfigView,
           .form = [this] { return makeForm(); },
           .emptyText = QStringLiteral("Select a tool to view details or click 'New Tool'."),
           .deleteCommand = [this] { m_controller->deleteButtonTapped(); },
           .deleteTitle = QStringLiteral("Delete Tool"),
           .deleteText = [this] { return m_controller->deleteToolText(); }});
    list()->setUniformItemSizes(true);
    bindForm();
    bindSchemaCommands();
    rebuildList();
}

void ToolsConfigView::bindForm()
{
    // The list's row follows the name and description as they are typed.
    commitAsTyped(m_name, [this] {
        m_controller->setName(m_name->text());
        refreshSelectedRow();
    });
    commitAsTyped(m_description, [this] {
        m_controller->setToolDescription(m_description->text());
        refreshSelectedRow();
    });
    commitAsTyped(m_handler, [this] { m_controller->setHandlerName(m_handler->text()); });
    commitAsTyped(m_title, [this] { m_controller->setAnnotationTitle(m_title->text()); });
    for (qsizetype i = 0; i < m_hints.size(); ++i) {
        QCheckBox *box = m_hints.at(i);
        const QString key = ToolsConfigController::hintKeys.at(i);
        connect(box, &QCheckBox::clicked, this, [this, box, key] {
            const Qt::CheckState state = box->checkState();
            m_controller->setAnnotationHint(key, state == Qt::PartiallyChecked ? std::nullopt
                                                                              : std::optional<bool>(state == Qt::Checked));
        });
    }
    connect(m_type, &QComboBox::activated, this, [this](int index) {
        m_controller->setToolType(m_type->itemData(index).toString());
        showSelection();
    });
    connect(m_method, &QComboBox::activated, this, [this](int index) {
        const QString method = m_method->itemData(index).toString();
        m_controller->setMethodName(method.isEmpty() ? m_method->itemText(index) : method);
    });
    connect(m_plugin, &QComboBox::activated, this, [this](int index) {
        m_controller->setPluginName(index == 0 ? QString() : m_plugin->itemText(index));
    });
    connect(button(QStringLiteral("chooseScript")), &QPushButton::clicked, this, &ToolsConfigView::chooseScript);
    connect(button(QStringLiteral("runTool")), &QPushButton::clicked, this, &ToolsConfigView::runSelectedTool);
    connect(m_testArguments, &QLineEdit::returnPressed, this, &ToolsConfigView::runSelectedTool);
    connect(list(), &QListWidget::itemClicked, this, [this] { m_controller->setFocus(ToolsConfigController::toolsListView); });
}

void ToolsConfigView::bindSchemaCommands()
{
    connect(button(QStringLiteral("addInput")), &QPushButton::clicked, m_controller, &ToolsConfigController::addInputSchemaTapped);
    connect(button(QStringLiteral("addOutput")), &QPushButton::clicked, m_controller, &ToolsConfigController::addOutputSchemaTapped);
    for (const auto &[name, field] : {std::pair{"editInput", ToolsConfigController::inputSchemeButton},
                                      {"editOutput", ToolsConfigController::outputSchemeButton}}) {
        const auto focus = field;
        connect(button(QString::fromLatin1(name)), &QPushButton::clicked, this, [this, focus] {
            m_controller->setFocus(focus);
            QMetaObject::invokeMethod(this, [this] { m_controller->editButtonTapped(); }, Qt::QueuedConnection);
        });
    }
    connect(m_controller, &ToolsConfigController::schemaStateChanged, this, [this] {
        showSelection();
        if (!presentsForController())
            return;
        confirmDeletes();
        QMetaObject::invokeMethod(this, &ToolsConfigView::openSchemaEditors, Qt::QueuedConnection);
    });
}

QLayout *ToolsConfigView::makeToolbar()
{
    // Where the screen is narrow, the less used commands fold into "⋯".
    auto *toolbar = new OverflowRow(this);
    // The commands' full titles, with their shortcuts, stand in the tooltips.
    auto command = [this](const char *name, const QString &label, const QString &title, const char *shortcut) {
        QPushButton *button = makeButton(this, QString::fromLatin1(name), label, shortcut);
        button->setToolTip(title);
        return button;
    };
    toolbar->addFixed(makeButton(this, QStringLiteral("add"), QStringLiteral("New Tool")));
    toolbar->addFixed(command("addInput", QStringLiteral("New input scheme"), CommandButton::label(QStringLiteral("New input scheme"), QKeySequence(QStringLiteral("Ctrl+I"))), "Ctrl+I"));
    toolbar->addFixed(command("addOutput", QStringLiteral("New output scheme"), CommandButton::label(QStringLiteral("New output scheme"), QKeySequence(QStringLiteral("Ctrl+O"))), "Ctrl+O"));
    toolbar->addFoldable(command("delete", QStringLiteral("Delete selected"), CommandButton::label(QStringLiteral("Delete selected"), QKeySequence(QStringLiteral("Ctrl+D"))), "Ctrl+D"));
    toolbar->addFoldable(command("revert", QStringLiteral("Revert changes"), CommandButton::label(QStringLiteral("Revert changes"), QKeySequence(QStringLiteral("Ctrl+U"))), "Ctrl+U"));
    toolbar->addFixed(makeButton(this, QStringLiteral("save"), QStringLiteral("Save")));
    toolbar->addSpace();
    toolbar->addFoldable(makeButton(this, QStringLiteral("copy"), QStringLiteral("Copy")));
    toolbar->addFoldable(makeButton(this, QStringLiteral("paste"), QStringLiteral("Paste")));
    return toolbar;
}

QLayout *ToolsConfigView::makeForm()
{
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("toolName"));
    m_description = new QLineEdit(this);
    m_description->setObjectName(QStringLiteral("toolDescription"));
    m_title = new QLineEdit(this);
    m_title->setObjectName(QStringLiteral("toolTitle"));
    m_title->setPlaceholderText(QStringLiteral("Shown to people instead of the name"));
    auto *hintRow = new QHBoxLayout;
    hintRow->setContentsMargins(0, 0, 0, 0);
    const QStringList hintLabels = {QStringLiteral("Read-only"), QStringLiteral("Destructive"),
                                    QStringLiteral("Idempotent"), QStringLiteral("Open world")};
    for (qsizetype i = 0; i < hintLabels.size(); ++i) {
        auto *box = new QCheckBox(hintLabels.at(i), this);
        box->setObjectName(ToolsConfigController::hintKeys.at(i));
        box->setTristate(true);
        box->setToolTip(QStringLiteral("Checked: yes; empty: no; partly checked: not stated (clients assume the default)"));
        hintRow->addWidget(box);
        m_hints.append(box);
    }
    hintRow->addStretch();
    m_type = new QComboBox(this);
    m_type->setObjectName(QStringLiteral("toolType"));
    for (const QString &type : ToolsConfigController::toolTypes)
        m_type->addItem(ToolsConfigController::typeLabel(type), type);
    m_method = new QComboBox(this);
    m_method->setObjectName(QStringLiteral("toolMethodName"));
    m_method->setEditable(true);
    m_handler = new QLineEdit(this);
    m_handler->setObjectName(QStringLiteral("toolHandlerName"));
    m_plugin = new QComboBox(this);
    m_plugin->setObjectName(QStringLiteral("toolPluginName"));
    m_script = new QLabel(this);
    m_script->setObjectName(QStringLiteral("toolScriptFile"));
    m_scriptRow = new QWidget(this);
    auto *scriptLayout = new QHBoxLayout(m_scriptRow);
    scriptLayout->setContentsMargins(0, 0, 0, 0);
    scriptLayout->addWidget(m_script, 1);
    scriptLayout->addWidget(makeButton(this, QStringLiteral("chooseScript"), QStringLiteral("Choose…")));
    m_inputCount = new QLabel(this);
    m_outputCount = new QLabel(this);

    auto *form = new QFormLayout;
    form->addRow(new QLabel(QStringLiteral("<b>Tool Definition</b>"), this));
    form->addRow(QStringLiteral("Name:"), m_name);
    form->addRow(QStringLiteral("Description:"), m_description);
    form->addRow(QStringLiteral("Title:"), m_title);
    form->addRow(QStringLiteral("Hints:"), hintRow);
    form->addRow(new QLabel(QStringLiteral("<b>Tool Action</b>"), this));
    form->addRow(QStringLiteral("Type:"), m_type);
    form->addRow(QStringLiteral("Method Name:"), m_method);
    form->addRow(QStringLiteral("Script File:"), m_scriptRow);
    form->addRow(QStringLiteral("Plugin Name:"), m_plugin);
    form->addRow(QStringLiteral("Handler Name:"), m_handler);
    form->addRow(new QLabel(QStringLiteral("<b>Schema Definition</b>"), this));
    auto schemaRow = [this](QLabel *count, const char *edit) {
        auto *row = new QHBoxLayout;
        row->addWidget(count, 1);
        row->addWidget(makeButton(this, QString::fromLatin1(edit), QStringLiteral("Edit…")));
        return row;
    };
    form->addRow(QStringLiteral("Input:"), schemaRow(m_inputCount, "editInput"));
    form->addRow(QStringLiteral("Output:"), schemaRow(m_outputCount, "editOutput"));
    m_testArguments = new QLineEdit(this);
    m_testArguments->setObjectName(QStringLiteral("toolTestArguments"));
    m_testArguments->setPlaceholderText(QStringLiteral("Arguments as a JSON object, {} for none"));
    auto *runRow = new QHBoxLayout;
    runRow->addWidget(m_testArguments, 1);
    runRow->addWidget(makeButton(this, QStringLiteral("runTool"), QStringLiteral("Run")));
    form->addRow(new QLabel(QStringLiteral("<b>Test Run</b>"), this));
    form->addRow(QStringLiteral("Arguments:"), runRow);
    m_result = new ToolResultView(this);
    m_result->setMinimumHeight(60);
    auto *page = new QVBoxLayout;
    page->addLayout(form);
    page->addWidget(m_result, 1);
    return page;
}

void ToolsConfigView::applyFilter()
{
    // A keystroke only hides and shows rows; the rows are made when the list changes.
    const QList<ToolsConfig *> shownTools = m_controller->filteredTools(filterField()->text());
    const QSet<StoreRecord *> shown(shownTools.begin(), shownTools.end());
    list()->setUpdatesEnabled(false);
    for (int row = 0; row < list()->count(); ++row) {
        QListWidgetItem *item = list()->item(row);
        const bool hide = !shown.contains(recordOf(item));
        if (item->isHidden() != hide)
            item->setHidden(hide);
    }
    list()->setUpdatesEnabled(true);
}

QString ToolsConfigView::rowText(const ToolsConfig *tool)
{
    return ToolsConfigController::rowName(tool) + u'\n' + ToolsConfigController::rowDescription(tool) + u'\n' +
           ToolsConfigController::rowSchemas(tool);
}

void ToolsConfigView::refreshSelectedRow()
{
    for (int row = 0; row < list()->count(); ++row) {
        QListWidgetItem *item = list()->item(row);
        if (recordOf(item) == m_controller->selectedTool()) {
            item->setText(rowText(m_controller->selectedTool()));
            return;
        }
    }
}

void ToolsConfigView::rebuildList()
{
    m_showing = true;
    list()->setUpdatesEnabled(false);
    list()->clear();
    for (ToolsConfig *tool : m_controller->tools())
        addRow(rowText(tool), tool);
    list()->setUpdatesEnabled(true);
    applyFilter();
    m_showing = false;
    showSelection();
}

void ToolsConfigView::showSelection()
{
    ToolsConfig *tool = m_controller->selectedTool();
    showCommonState();
    button(QStringLiteral("addInput"))->setEnabled(tool != nullptr);
    button(QStringLiteral("addOutput"))->setEnabled(tool != nullptr);
    if (!tool)
        return;
    m_showing = true;
    // A field not being edited shows the start of its text.
    for (const auto &[field, text] : {std::pair{m_name, tool->name().value_or(QString())},
                                      {m_description, tool->toolDescription().value_or(QString())},
                                      {m_handler, tool->handlerName().value_or(QString())}}) {
        if (!field->hasFocus() && field->text() != text) {
            field->setText(text);
            field->setCursorPosition(0);
        }
    }
    const QJsonObject hints = m_controller->annotationHints();
    if (const QString title = hints.value(QStringLiteral("title")).toString(); !m_title->hasFocus() && m_title->text() != title) {
        m_title->setText(title);
        m_title->setCursorPosition(0);
    }
    for (qsizetype i = 0; i < m_hints.size(); ++i) {
        const QJsonValue value = hints.value(ToolsConfigController::hintKeys.at(i));
        m_hints.at(i)->setCheckState(!value.isBool() ? Qt::PartiallyChecked : value.toBool() ? Qt::Checked : Qt::Unchecked);
    }
    const QString type = ToolsConfigController::shownType(tool);
    m_type->setCurrentIndex(m_type->findData(type));
    m_method->clear();
    const QStringList methods = type == QLatin1String("BuiltinTool") ? ToolsConfigController::builtinMethods()
                                                                     : QStringList{QStringLiteral("toolEntry")};
    for (const QString &method : methods)
        m_method->addItem(ToolsConfigController::methodLabel(method), method);
    const QString method = tool->methodName().value_or(QString());
    const int index = m_method->findData(method);
    if (index >= 0)
        m_method->setCurrentIndex(index);
    else
        m_method->setEditText(method);
    m_scriptRow->setVisible(type == QLatin1String("ScriptTool"));
    m_script->setText(tool->scriptFileName().value_or(QStringLiteral("No file chosen")));
    m_plugin->setVisible(type == QLatin1String("CustomTool"));
    m_plugin->clear();
    m_plugin->addItem(QStringLiteral("None"));
    if (m_plugins)
        for (const Plugin &plugin : m_plugins->plugins())
            m_plugin->addItem(plugin.displayName());
    const QString pluginName = tool->pluginName().value_or(QString());
    m_plugin->setCurrentIndex(pluginName.isEmpty() ? 0 : std::max(0, m_plugin->findText(pluginName)));
    // The count is of parameters, what a client sees, not of the schema records holding them.
    qsizetype inputs = 0;
    for (const ToolInputSchema *schema : tool->inputSchemas())
        inputs += ToolsQueryService::sortedProperties(schema).size();
    qsizetype outputs = 0;
    for (const ToolOutputSchema *schema : tool->outputSchmas())
        outputs += ToolsQueryService::sortedProperties(schema).size();
    m_inputCount->setText(QStringLiteral("Input Schema contains %1 entries").arg(inputs));
    m_outputCount->setText(QStringLiteral("Output Schema contains %1 entries").arg(outputs));
    m_showing = false;
}

void ToolsConfigView::runSelectedTool()
{
    ToolsConfig *tool = m_controller->selectedTool();
    if (!tool)
        return;
    const QString text = m_testArguments->text().trimmed();
    QJsonParseError error{};
    const QJsonDocument parsed = QJsonDocument::fromJson(text.isEmpty() ? QByteArray("{}") : text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !parsed.isObject()) {
        m_result->showMessage(QStringLiteral("The arguments must be a JSON object: %1")
                                  .arg(error.error != QJsonParseError::NoError ? error.errorString()
                                                                               : QStringLiteral("this is no object")));
        return;
    }
    const Result<JSONToolConfig> config = ConfigurationController::toolConfig(tool);
    if (!config) {
        m_result->showMessage(config.error().description);
        return;
    }
    const QJsonObject arguments = parsed.object();
    if (m_runner && config->toolType == QLatin1String("CustomTool")) {
        m_result->showResult(m_runner(*config, arguments));
        return;
    }
    if (config->toolType == QLatin1String("ScriptTool")) {
        m_result->showResult(PluginScripting::callScript(QString(), config->scriptName, config->execHandler,
                                                         QString::fromUtf8(QJsonDocument(arguments).toJson()), nullptr,
                                                         config->name));
        return;
    }
    const BuiltinToolMethod *method =
        config->toolType == QLatin1String("CustomTool") ? nullptr : BuiltinToolTable::find(config->execMethod);
    if (!method || !method->run) {
        m_result->showMessage(QStringLiteral("This tool runs only when a client calls it."));
        return;
    }
    m_result->showResult(method->run(arguments.toVariantMap()));
}

void ToolsConfigView::chooseScript()
{
    QFileDialog panel(this, QStringLiteral("Select JavaScript File"));
    panel.setObjectName(QStringLiteral("selectScriptPanel"));
    panel.setLabelText(QFileDialog::LookIn, QStringLiteral("Choose a script file for this tool"));
    panel.setFileMode(QFileDialog::ExistingFile);
    panel.setNameFilter(QStringLiteral("JavaScript files (*.js *.mjs)"));
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty())
        return;
    m_controller->setScriptFile(panel.selectedFiles().first());
    showSelection();
}

void ToolsConfigView::openSchemaEditors()
{
    if (m_editorOpen)
        return;
    const bool input = m_controller->showingEditInputSchema();
    const bool output = m_controller->showingEditOutputSchema();
    if (!(input && m_controller->selectedInputScheme()) && !(output && m_controller->selectedOutputScheme()))
        return;
    m_editorOpen = true;
    ToolSchemaEditorDialog::Editor editor =
        input ? ToolSchemaEditorDialog::Editor(std::make_unique<ToolInputSchemaEditor>(
                    m_controller, m_controller->selectedInputScheme(), m_controller->isNewSchema()))
              : ToolSchemaEditorDialog::Editor(std::make_unique<ToolOutputSchemaEditor>(
                    m_controller, m_controller->selectedOutputScheme(), m_controller->isNewSchema()));
    ToolSchemaEditorDialog dialog(std::move(editor), input, this);
    dialog.exec();
    m_controller->closeSchemaEditors();
    m_editorOpen = false;
    showSelection();
}

void ToolsConfigView::confirmDeletes()
{
    const bool input = m_controller->showingDeleteInputSchemaConfirmation();
    const bool output = m_controller->showingDeleteOutputSchemaConfirmation();
    if ((!input && !output) || openBox(QStringLiteral("deleteSchemaConfirmation")))
        return;
    confirm(this, QStringLiteral("deleteSchemaConfirmation"),
            input ? QStringLiteral("Delete Input Schema") : QStringLiteral("Delete Output Schema"),
            input ? ToolsConfigController::deleteInputSchemaText : ToolsConfigController::deleteOutputSchemaText,
            [this, input] { input ? m_controller->confirmDeleteInputSchema() : m_controller->confirmDeleteOutputSchema(); },
            [this] { m_controller->cancelDeleteSchema(); });
}
