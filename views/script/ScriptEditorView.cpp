#include "views/script/ScriptEditorView.h"

#include "views/common/LayoutMetrics.h"
#include "diagnostics/LogController.h"
#include "views/common/AlertPresenter.h"
#include "views/common/OverflowRow.h"
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

namespace {

QPushButton *namedButton(QWidget *parent, const char *name, const QString &text)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QString::fromLatin1(name));
    return button;
}

}  // namespace

ScriptEditorView::ScriptEditorView(ScriptEditorController *controller, QWidget *parent)
    : DestinationScreen(parent),
      m_controller(controller ? controller : new ScriptEditorController(nullptr, this)),
      m_panels(std::make_unique<QtScriptFilePanels>(this)),
      m_explorerPanels(std::make_unique<QtFileExplorerPanels>(this)),
      m_explorerModel(new FileExplorerModel(m_explorerPanels.get(), this))
{
    setObjectName(QStringLiteral("scriptEditorView"));
    m_controller->setPanels(m_panels.get());

    // Made in this order, so that Tab walks the screen as before: title and toolbar, the
    // editor, the find bar, the log, the folder tree.
    QLayout *toolbar = buildToolbar();
    buildEditor();
    buildFindBar();
    QSplitter *editorAndLog = buildEditorAndLog();
    buildExplorer();
    layOut(toolbar, editorAndLog);
    bindToolbar();
    bindEditor();

    AlertPresenter::bind(m_controller, this);
    refreshRecent();
    m_controller->restore();
    loadContent();
    emit m_controller->changed();
}

QLayout *ScriptEditorView::buildToolbar()
{
    m_title = new QLabel(this);
    m_recent = new QComboBox(this);
    m_recent->setObjectName(QStringLiteral("recentFiles"));
    m_recent->setMinimumWidth(160);
    m_recent->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    // Find and Settings fold into "⋯" where the editor's side is narrow.
    auto *toolbar = new OverflowRow(this);
    toolbar->addFixed(namedButton(this, "new", QStringLiteral("New Script")));
    toolbar->addFixed(namedButton(this, "open", QStringLiteral("Open…")));
    toolbar->addFixed(namedButton(this, "save", QStringLiteral("Save")));
    toolbar->addFixed(namedButton(this, "run", QStringLiteral("Check and Run Script")));
    toolbar->addFoldable(namedButton(this, "find", QStringLiteral("Find")));
    toolbar->addFoldable(namedButton(this, "settings", QStringLiteral("Settings")));
    toolbar->addSpace();
    return toolbar;
}

void ScriptEditorView::buildEditor()
{
    m_editor = new SourceTextEditor(EditorSettings::shared(), this);
    m_controller->searchManager()->setDocument(m_editor->document());
}

void ScriptEditorView::buildFindBar()
{
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
    QPushButton *previous = namedButton(this, "findPrevious", QStringLiteral("Find Previous"));
    QPushButton *next = namedButton(this, "findNext", QStringLiteral("Find Next"));
    QPushButton *replace = namedButton(this, "replace", QStringLiteral("Replace"));
    QPushButton *replaceAll = namedButton(this, "replaceAll", QStringLiteral("Replace All"));
    replaceAll->setToolTip(QStringLiteral("Replace all matches"));
    auto *findLayout = new QHBoxLayout(m_findBar);
    findLayout->setContentsMargins(0, 0, 0, 0);
    findLayout->addWidget(m_search);
    findLayout->addWidget(m_count);
    findLayout->addWidget(previous);
    findLayout->addWidget(next);
    findLayout->addWidget(m_replace);
    findLayout->addWidget(replace);
    findLayout->addWidget(replaceAll);
    findLayout->addWidget(caseBox);
    findLayout->addWidget(exactBox);
    findLayout->addWidget(wrapBox);
    m_findBar->setVisible(false);

    SearchReplaceManager *search = m_controller->searchManager();
    connect(next, &QPushButton::clicked, search, &SearchReplaceManager::findNext);
    connect(previous, &QPushButton::clicked, search, &SearchReplaceManager::findPrevious);
    connect(replace, &QPushButton::clicked, search, &SearchReplaceManager::replaceCurrent);
    connect(replaceAll, &QPushButton::clicked, search, &SearchReplaceManager::replaceAll);
    connect(m_search, &QLineEdit::textChanged, search, &SearchReplaceManager::setSearchText);
    connect(m_replace, &QLineEdit::textChanged, search, &SearchReplaceManager::setReplaceText);
    connect(caseBox, &QCheckBox::toggled, search, &SearchReplaceManager::setCaseSensitive);
    connect(exactBox, &QCheckBox::toggled, search, &SearchReplaceManager::setExactMatch);
    connect(wrapBox, &QCheckBox::toggled, search, &SearchReplaceManager::setWrapAround);
}

QSplitter *ScriptEditorView::buildEditorAndLog()
{
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
    return split;
}

void ScriptEditorView::buildExplorer()
{
    // The folder tree on the left opens its scripts here and gives new files the template.
    m_explorerModel->preferredNewFileExtension = QStringLiteral("js");
    m_explorerModel->onOpenFile = [this](const QString &path) { m_controller->openFile(path); };
    // A script dropped on the editor opens, as one picked in the tree does.
    connect(m_editor, &SourceTextEditor::filesDropped, this,
            [this](const QStringList &paths) { m_controller->openFile(paths.first()); });
    m_explorerModel->onNewFile = [] { return ScriptEditorController::newScriptTemplate; };
    m_explorer = new UnifiedFileExplorerView(m_explorerModel, this);
    m_explorer->setMinimumWidth(160);
    // A saved script's row shows its new size.
    connect(m_controller, &AbstractController::changed, m_explorer, [this] {
        if (!m_controller->contentIsDirty())
            m_explorer->refreshSize(m_controller->currentFilePath());
    });
}

void ScriptEditorView::layOut(QLayout *toolbar, QSplitter *editorAndLog)
{
    auto *editorSide = new QWidget(this);
    auto *editorLayout = new QVBoxLayout(editorSide);
    editorLayout->setContentsMargins(0, 0, 0, 0);
    // The recent files share the title's line, where there is room for their names.
    auto *titleRow = new QHBoxLayout;
    m_title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    titleRow->addWidget(m_title, 1);
    titleRow->addWidget(new QLabel(QStringLiteral("Recent Files"), this));
    titleRow->addWidget(m_recent);
    editorLayout->addLayout(titleRow);
    editorLayout->addLayout(toolbar);
    editorLayout->addWidget(editorAndLog, 1);
    auto *sides = new QSplitter(Qt::Horizontal, this);
    sides->setObjectName(QStringLiteral("explorerSplit"));
    sides->addWidget(m_explorer);
    sides->addWidget(editorSide);
    sides->setStretchFactor(0, 1);
    sides->setStretchFactor(1, 4);
    sides->setSizes({200, 1000});

    auto *layout = new QVBoxLayout(this);
    LayoutMetrics::applyToScreen(layout);
    layout->addWidget(sides, 1);
}

void ScriptEditorView::bindToolbar()
{
    auto named = [this](const char *name) { return findChild<QPushButton *>(QString::fromLatin1(name)); };
    connect(named("new"), &QPushButton::clicked, m_controller, &ScriptEditorController::newScript);
    connect(named("open"), &QPushButton::clicked, this, &ScriptEditorView::openFileDialog);
    connect(named("save"), &QPushButton::clicked, m_controller, &ScriptEditorController::saveScript);
    connect(named("run"), &QPushButton::clicked, this, &ScriptEditorView::openRunDialog);
    connect(named("find"), &QPushButton::clicked, this, [this] { performCommand(MenuCommand::Find); });
    connect(named("settings"), &QPushButton::clicked, this, &ScriptEditorView::openSettings);
    connect(FileHistoryManager::shared(), &FileHistoryManager::entriesChanged, this, &ScriptEditorView::refreshRecent);
    connect(m_recent, &QComboBox::activated, this, [this](int index) {
        const QString path = m_recent->itemData(index).toString();
        if (!path.isEmpty())
            m_controller->openFile(path);
    });
}

void ScriptEditorView::bindEditor()
{
    SearchReplaceManager *search = m_controller->searchManager();
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
    connect(EditorSettings::shared(), &EditorSettings::settingsChanged, m_editor, &SourceTextEditor::applySettings);
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
