#include "views/script/ScriptEditorView.h"

#include "diagnostics/LogController.h"
#include "views/app/AlertPresenter.h"
#include "views/log/LogPaneView.h"
#include "views/script/EditorSettingsDialog.h"
#include "views/script/QtFileExplorerPanels.h"
#include "views/script/QtScriptFilePanels.h"
#include "views/script/RunScriptDialog.h"
#include "views/script/SourceTextEditor.h"
#include "views/script/UnifiedFileExplorerView.h"
#include "workbench/EditorSettings.h"
#include "workbench/FileExplorerModel.h"
#include "workbench/FileHistoryManager.h"
#include "workbench/RunScriptManager.h"
#include "workbench/ScriptEditorController.h"
#include "workbench/SearchReplaceManager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

ScriptEditorView::ScriptEditorView(ScriptEditorController *controller, QWidget *parent)
    : DestinationScreen(parent),
      m_controller(controller ? controller : new ScriptEditorController(nullptr, this)),
      m_panels(std::make_unique<QtScriptFilePanels>(this)),
      m_explorerPanels(std::make_unique<QtFileExplorerPanels>(this)),
      m_explorerModel(new FileExplorerModel(m_explorerPanels.get(), this))
{
    setObjectName(QStringLiteral("scriptEditorView"));
    m_controller->setPanels(m_panels.get());

    auto button = [this](const char *name, const QString &text) {
        auto *b = new QPushButton(text, this);
        b->setObjectName(QString::fromLatin1(name));
        return b;
    };
    m_title = new QLabel(this);
    m_recent = new QComboBox(this);
    m_recent->setObjectName(QStringLiteral("recentFiles"));
    m_recent->setMinimumWidth(160);
    auto *toolbar = new QHBoxLayout;
    toolbar->addWidget(button("new", QStringLiteral("New Script")));
    toolbar->addWidget(button("open", QStringLiteral("Open…")));
    toolbar->addWidget(button("save", QStringLiteral("Save")));
    toolbar->addWidget(button("run", QStringLiteral("Check and Run Script")));
    toolbar->addWidget(button("find", QStringLiteral("Find")));
    toolbar->addWidget(button("settings", QStringLiteral("Settings")));
    toolbar->addStretch();
    toolbar->addWidget(new QLabel(QStringLiteral("Recent Files"), this));
    toolbar->addWidget(m_recent);

    m_editor = new SourceTextEditor(EditorSettings::shared(), this);
    m_controller->searchManager()->setDocument(m_editor->document());

    m_findBar = new QWidget(this);
    m_findBar->setObjectName(QStringLiteral("findBar"));
    m_search = new QLineEdit(m_findBar);
    m_search->setObjectName(QStringLiteral("searchField"));
    m_search->setPlaceholderText(QStringLiteral("Search"));
    m_replace = new QLineEdit(m_findBar);
    m_replace->setObjectName(QStringLiteral("replaceField"));
    m_replace->setPlaceholderText(QStringLiteral("Replace"));
    m_count = new QLabel(m_findBar);
    auto *caseBox = new QCheckBox(QStringLiteral("Case Sensitive"), m_findBar);
    auto *exactBox = new QCheckBox(QStringLiteral("Exact Match"), m_findBar);
    auto *wrapBox = new QCheckBox(QStringLiteral("Wrap Around"), m_findBar);
    wrapBox->setChecked(true);
    auto *findLayout = new QHBoxLayout(m_findBar);
    findLayout->setContentsMargins(0, 0, 0, 0);
    findLayout->addWidget(m_search);
    findLayout->addWidget(m_count);
    findLayout->addWidget(button("findPrevious", QStringLiteral("Find Previous")));
    findLayout->addWidget(button("findNext", QStringLiteral("Find Next")));
    findLayout->addWidget(m_replace);
    findLayout->addWidget(button("replace", QStringLiteral("Replace")));
    QPushButton *replaceAll = button("replaceAll", QStringLiteral("Replace All"));
    replaceAll->setToolTip(QStringLiteral("Replace all matches"));
    findLayout->addWidget(replaceAll);
    findLayout->addWidget(caseBox);
    findLayout->addWidget(exactBox);
    findLayout->addWidget(wrapBox);
    m_findBar->setVisible(false);

    m_log = new LogPaneView(LogController::shared(), this);
    auto *split = new QSplitter(Qt::Vertical, this);
    auto *top = new QWidget(this);
    auto *topLayout = new QVBoxLayout(top);
    topLayout->setContentsMargins(0, 0, 0, 0);
    topLayout->addWidget(m_findBar);
    topLayout->addWidget(m_editor, 1);
    split->addWidget(top);
    split->addWidget(m_log);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 1);
    m_log->setVisible(m_controller->isLogViewVisible());

    // The folder tree on the left opens its scripts here and gives new files the template.
    m_explorerModel->preferredNewFileExtension = QStringLiteral("js");
    m_explorerModel->onOpenFile = [this](const QString &path) { m_controller->openFile(path); };
    m_explorerModel->onNewFile = [] { return ScriptEditorController::newScriptTemplate; };
    m_explorer = new UnifiedFileExplorerView(m_explorerModel, this);
    m_explorer->setMinimumWidth(160);
    auto *editorSide = new QWidget(this);
    auto *editorLayout = new QVBoxLayout(editorSide);
    editorLayout->setContentsMargins(0, 0, 0, 0);
    editorLayout->addWidget(m_title);
    editorLayout->addLayout(toolbar);
    editorLayout->addWidget(split, 1);
    auto *sides = new QSplitter(Qt::Horizontal, this);
    sides->setObjectName(QStringLiteral("explorerSplit"));
    sides->addWidget(m_explorer);
    sides->addWidget(editorSide);
    sides->setStretchFactor(0, 1);
    sides->setStretchFactor(1, 4);
    sides->setSizes({200, 1000});

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(sides, 1);

    SearchReplaceManager *search = m_controller->searchManager();
    connect(findChild<QPushButton *>(QStringLiteral("new")), &QPushButton::clicked, m_controller, &ScriptEditorController::newScript);
    connect(findChild<QPushButton *>(QStringLiteral("open")), &QPushButton::clicked, this, &ScriptEditorView::openFileDialog);
    connect(findChild<QPushButton *>(QStringLiteral("save")), &QPushButton::clicked, m_controller, &ScriptEditorController::saveScript);
    connect(findChild<QPushButton *>(QStringLiteral("run")), &QPushButton::clicked, this, &ScriptEditorView::openRunDialog);
    connect(findChild<QPushButton *>(QStringLiteral("find")), &QPushButton::clicked, this, [this] { performCommand(MenuCommand::Find); });
    connect(findChild<QPushButton *>(QStringLiteral("settings")), &QPushButton::clicked, this, &ScriptEditorView::openSettings);
    connect(findChild<QPushButton *>(QStringLiteral("findNext")), &QPushButton::clicked, search, &SearchReplaceManager::findNext);
    connect(findChild<QPushButton *>(QStringLiteral("findPrevious")), &QPushButton::clicked, search, &SearchReplaceManager::findPrevious);
    connect(findChild<QPushButton *>(QStringLiteral("replace")), &QPushButton::clicked, search, &SearchReplaceManager::replaceCurrent);
    connect(replaceAll, &QPushButton::clicked, search, &SearchReplaceManager::replaceAll);
    connect(m_search, &QLineEdit::textChanged, search, &SearchReplaceManager::setSearchText);
    connect(m_replace, &QLineEdit::textChanged, search, &SearchReplaceManager::setReplaceText);
    connect(caseBox, &QCheckBox::toggled, search, &SearchReplaceManager::setCaseSensitive);
    connect(exactBox, &QCheckBox::toggled, search, &SearchReplaceManager::setExactMatch);
    connect(wrapBox, &QCheckBox::toggled, search, &SearchReplaceManager::setWrapAround);
    connect(search, &AbstractController::changed, this, &ScriptEditorView::refreshSearch);
    connect(search, &SearchReplaceManager::selectionRequested, this, [this](int location, int length) {
        QTextCursor cursor = m_editor->textCursor();
        cursor.setPosition(location);
        cursor.setPosition(location + length, QTextCursor::KeepAnchor);
        m_editor->setTextCursor(cursor);
        m_editor->ensureCursorVisible();
    });
    connect(m_editor, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_loading)
            m_controller->textChanged(m_editor->toPlainText());
    });
    connect(m_controller, &ScriptEditorController::contentReplaced, this, &ScriptEditorView::loadContent);
    connect(m_controller, &AbstractController::changed, this, [this] {
        const QString name = m_controller->currentFilePath().isEmpty() ? QStringLiteral("New Script")
                                                                       : QFileInfo(m_controller->currentFilePath()).fileName();
        m_title->setText(QStringLiteral("<b>%1</b>%2").arg(name, m_controller->contentIsDirty() ? QStringLiteral(" — Edited") : QString()));
        emit commandStateChanged();
    });
    connect(FileHistoryManager::shared(), &FileHistoryManager::entriesChanged, this, &ScriptEditorView::refreshRecent);
    connect(m_recent, &QComboBox::activated, this, [this](int index) {
        const QString path = m_recent->itemData(index).toString();
        if (!path.isEmpty())
            m_controller->openFile(path);
    });
    connect(EditorSettings::shared(), &EditorSettings::settingsChanged, m_editor, &SourceTextEditor::applySettings);
    AlertPresenter::bind(m_controller, this);
    refreshRecent();
    m_controller->restore();
    loadContent();
    emit m_controller->changed();
}

ScriptEditorView::~ScriptEditorView() = default;

AbstractController *ScriptEditorView::activeController() const
{
    return m_controller;
}

bool ScriptEditorView::handlesCommand(MenuCommand command) const
{
    switch (command) {
    case MenuCommand::NewItem:
    case MenuCommand::Save:
    case MenuCommand::SaveAs:
    case MenuCommand::RunScript:
    case MenuCommand::Find:
    case MenuCommand::FindNext:
    case MenuCommand::FindPrevious:
    case MenuCommand::Replace:
    case MenuCommand::EditorSettings:
        return true;
    default:
        return false;
    }
}

void ScriptEditorView::performCommand(MenuCommand command)
{
    SearchReplaceManager *search = m_controller->searchManager();
    switch (command) {
    case MenuCommand::NewItem:
        m_controller->newScript();
        break;
    case MenuCommand::Save:
        m_controller->saveScript();
        break;
    case MenuCommand::SaveAs:
        m_controller->saveScriptAs();
        break;
    case MenuCommand::RunScript:
        openRunDialog();
        break;
    case MenuCommand::Find:
    case MenuCommand::Replace:
        search->show();
        m_findBar->setVisible(true);
        (command == MenuCommand::Find ? m_search : m_replace)->setFocus();
        break;
    case MenuCommand::FindNext:
        search->findNext();
        break;
    case MenuCommand::FindPrevious:
        search->findPrevious();
        break;
    case MenuCommand::EditorSettings:
        openSettings();
        break;
    default:
        break;
    }
}

void ScriptEditorView::loadContent()
{
    if (m_editor->toPlainText() == m_controller->fileContent())
        return;
    m_loading = true;
    m_editor->setPlainText(m_controller->fileContent());
    m_loading = false;
}

void ScriptEditorView::refreshRecent()
{
    m_recent->clear();
    const QStringList entries = FileHistoryManager::shared()->entries();
    if (entries.isEmpty()) {
        m_recent->addItem(QStringLiteral("No recent files"));
        return;
    }
    for (const QString &path : entries) {
        m_recent->addItem(QFileInfo(path).fileName(), path);
        m_recent->setItemData(m_recent->count() - 1, path, Qt::ToolTipRole);
    }
}

void ScriptEditorView::refreshSearch()
{
    SearchReplaceManager *search = m_controller->searchManager();
    m_count->setText(search->countText());
    m_editor->showMatches(search->matches(), search->currentMatchIndex());
}

void ScriptEditorView::openFileDialog()
{
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open Script"), QString(),
                                                      QStringLiteral("JavaScript files (*.js *.mjs);;All files (*)"));
    if (!path.isEmpty())
        m_controller->openFile(path);
}

void ScriptEditorView::openRunDialog()
{
    RunScriptManager *run = m_controller->runManager();
    run->setVisible(true);
    RunScriptDialog dialog(run, [this](const QString &handler, const QJsonObject &params) {
        m_controller->runScript(handler, params);
    }, this);
    dialog.exec();
    run->setVisible(false);
}

void ScriptEditorView::openSettings()
{
    EditorSettingsDialog dialog(EditorSettings::shared(), this);
    dialog.exec();
}
