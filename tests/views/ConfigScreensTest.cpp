#include "app/MenuCommandDispatcher.h"
#include "app/config/RelatedResourceItem.h"
#include "app/security/AccessPanel.h"
#include "base/UserDefaults.h"
#include "store/PersistenceController.h"
#include "store/PromptArguments.h"
#include "store/StoreContext.h"
#include "store/PromptConfig.h"
#include "app/config/PromptConfigController.h"
#include "store/ResourceConfig.h"
#include "app/config/ResourceConfigController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/prompts/PromptConfigView.h"
#include "views/resources/ResourceConfigView.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QMenu>
#include <QSplitter>
#include <QTableWidget>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace ViewsTestSupport;
using TestSupport::waitUntil;

namespace {

// Answers the next dialog with the given object name from inside its event loop.
void answerDialog(const QString &name, std::function<void(QDialog *)> fill, bool accept = true)
{
    QTimer::singleShot(50, [name, fill, accept] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *dialog = qobject_cast<QDialog *>(widget); dialog && dialog->objectName() == name && dialog->isVisible()) {
                fill(dialog);
                accept ? dialog->accept() : dialog->reject();
                return;
            }
        }
    });
}

void clickInBox(const QString &text)
{
    ASSERT_TRUE(waitUntil([] { return openMessageBox() != nullptr; }));
    for (QAbstractButton *b : openMessageBox()->buttons())
        if (b->text() == text) {
            b->click();
            return;
        }
    FAIL() << "no button " << text.toStdString();
}

class ConfigScreensViewTest : public ::testing::Test {
protected:
    void SetUp() override { BuiltinFeatures::registerAll(TestServices::application()); }
    void TearDown() override { closeAllWindows(); }
};

}  // namespace

TEST_F(ConfigScreensViewTest, ResourcesCreateEditSaveFilterRevertAndDelete)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ResourceConfigController *controller = view->controller();
    // Button texts beyond ASCII arrive whole.
    EXPECT_EQ(view->button("delete")->text(), QStringLiteral("−"));

    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return view->list()->count() == 1 && controller->selectedResourceConfig(); }));
    EXPECT_TRUE(view->list()->item(0)->text().startsWith("New Resource\nResource description\nType: data"));
    view->nameField()->setText(QStringLiteral("Project notes"));
    emit view->nameField()->editingFinished();
    view->uriField()->setText(QStringLiteral("file:///tmp/notes.md"));
    emit view->uriField()->editingFinished();
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));
    EXPECT_EQ(controller->selectedResourceConfig()->name(), QStringLiteral("Project notes"));
    EXPECT_EQ(ResourceConfigController::uriText(controller->selectedResourceConfig()), "file:///tmp/notes.md");

    // The tag sheet stores the list as a JSON array.
    answerDialog(QStringLiteral("contextTagsSheet"), [](QDialog *sheet) {
        auto *list = sheet->findChild<QListWidget *>(QStringLiteral("tagList"));
        list->item(1)->setText(QStringLiteral("Notes"));
    });
    view->editTags();
    EXPECT_EQ(controller->selectedResourceConfig()->contextTags(), QStringLiteral("[\"File\",\"Notes\"]"));

    // Revert brings the saved tags back; the filter narrows the list.
    ASSERT_TRUE(waitUntil([&] { return controller->hasUnsavedChanges() && view->button("revert")->isEnabled(); }));
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));
    EXPECT_EQ(controller->selectedResourceConfig()->contextTags(), QStringLiteral("File,Resource"));
    view->filterField()->setText(QStringLiteral("nothing like it"));
    EXPECT_EQ(view->list()->count(), 0);
    view->filterField()->setText(QStringLiteral("PROJECT"));
    EXPECT_EQ(view->list()->count(), 1);

    // Delete asks, and Delete in the box removes it.
    view->button("delete")->click();
    clickInBox(QStringLiteral("Delete"));
    ASSERT_TRUE(waitUntil([&] { return controller->resourceConfigs().isEmpty(); }));
    view->filterField()->clear();
    EXPECT_EQ(view->list()->count(), 0);
}

TEST_F(ConfigScreensViewTest, PromptsWithArgumentsThroughTheSheets)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuPromptConfig);
    auto *view = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    PromptConfigController *controller = view->controller();
    EXPECT_EQ(view->button("addArgument")->text(), QStringLiteral("Add Argument Ctrl+T"));

    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedPrompt() != nullptr; }));
    PromptConfig *prompt = controller->selectedPrompt();
    view->templateField()->setPlainText(QStringLiteral("Summarise {topic} in {style}"));
    EXPECT_EQ(prompt->templateText(), QStringLiteral("Summarise {topic} in {style}"));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    answerDialog(QStringLiteral("addArgumentSheet"), [](QDialog *sheet) {
        sheet->findChild<QLineEdit *>(QStringLiteral("argumentName"))->setText(QStringLiteral("topic"));
        sheet->findChild<QLineEdit *>(QStringLiteral("argumentInfo"))->setText(QStringLiteral("What to summarise"));
    });
    view->button("addArgument")->click();
    ASSERT_TRUE(waitUntil([&] { return prompt->arguments().size() == 2; }));
    EXPECT_TRUE(controller->hasUnsavedChanges());
    EXPECT_EQ(view->argumentList()->count(), 2);

    // A cancelled add sheet changes nothing.
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));
    answerDialog(QStringLiteral("addArgumentSheet"), [](QDialog *) {}, false);
    view->button("addArgument")->click();
    EXPECT_EQ(prompt->arguments().size(), 2);
    EXPECT_FALSE(controller->hasUnsavedChanges());

    // Delete an argument through its confirmation.
    view->argumentList()->setCurrentRow(0);
    view->button("deleteArgument")->click();
    clickInBox(QStringLiteral("Delete"));
    ASSERT_TRUE(waitUntil([&] { return prompt->arguments().size() == 1; }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    // And the prompt itself.
    view->button("delete")->click();
    clickInBox(QStringLiteral("Delete"));
    ASSERT_TRUE(waitUntil([&] { return controller->prompts().isEmpty(); }));
}

// Pending edits are not lost silently: switching destination keeps them, and closing the
// last window asks; Cancel keeps the window, Don't Save drops them.
TEST_F(ConfigScreensViewTest, ClosingTheLastWindowAsksAboutPendingEdits)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return view->controller()->hasUnsavedChanges(); }));
    StoreContext *context = TestServices::application().context();

    window->close();
    clickInBox(QStringLiteral("Cancel"));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(context->hasChanges());

    window->close();
    clickInBox(QStringLiteral("Don't Save"));
    ASSERT_TRUE(waitUntil([&] { return !window->isVisible(); }));
    EXPECT_FALSE(context->hasChanges());
}

// Copy and paste from the keyboard while the list has the focus.
TEST_F(ConfigScreensViewTest, TheListCopiesAndPastesFromTheKeyboard)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return view->controller()->resourceConfigs().size() == 1; }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !view->controller()->hasUnsavedChanges(); }));
    view->list()->setFocus();
    QTest::keySequence(view->list(), QKeySequence::Copy);
    QTest::keySequence(view->list(), QKeySequence::Paste);
    ASSERT_TRUE(waitUntil([&] { return view->controller()->resourceConfigs().size() == 2; }));
    EXPECT_EQ(view->controller()->selectedResourceConfig()->name(), QStringLiteral("New Resource Copy"));
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return !view->controller()->hasUnsavedChanges(); }));
}

// Every keystroke is a pending change: typed into a field that still has the focus, the edit
// lights Save up at once, closing the window asks, and Save keeps the text.
TEST_F(ConfigScreensViewTest, ATypedEditIsPendingAtOnceAndSavedOnClose)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ResourceConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedResourceConfig() != nullptr; }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    QApplication::setActiveWindow(window);
    view->nameField()->setFocus();
    view->nameField()->selectAll();
    QTest::keyClicks(view->nameField(), QStringLiteral("Typed"));
    // In the middle of the word, as people correct a typo: the caret stays where it is.
    view->nameField()->setCursorPosition(2);
    QTest::keyClicks(view->nameField(), QStringLiteral("X"));
    EXPECT_EQ(view->nameField()->text(), "TyXped");
    EXPECT_EQ(view->nameField()->cursorPosition(), 3);
    EXPECT_TRUE(view->nameField()->hasFocus());
    EXPECT_TRUE(waitUntil([&] { return view->button("save")->isEnabled(); }));
    EXPECT_EQ(controller->selectedResourceConfig()->name(), QStringLiteral("TyXped"));

    window->close();
    clickInBox(QStringLiteral("Save"));
    ASSERT_TRUE(waitUntil([&] { return !window->isVisible(); }));
    TestServices::application().context()->rollback();
    ASSERT_FALSE(controller->resourceConfigs().isEmpty());
    EXPECT_EQ(controller->resourceConfigs().first()->name(), QStringLiteral("TyXped"));
}

namespace {

// Leaves the shared store without resources for the tests that follow.
void removeAllResources(ResourceConfigController *controller)
{
    StoreContext *context = TestServices::application().context();
    context->rollback();
    for (ResourceConfig *resource : controller->resourceConfigs())
        context->deleteObject(resource);
    ASSERT_TRUE(context->save());
    controller->reload();
    ASSERT_TRUE(waitUntil([&] { return controller->resourceConfigs().isEmpty() && !controller->isAdding(); }));
}

}  // namespace

// Quitting with the caret still in a checked field (URI, priority) asks, and Save stores
// what was typed; Cancel gives the field its focus back.
TEST_F(ConfigScreensViewTest, QuittingWhileTypingInACheckedFieldAsksAndSaveStoresIt)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ResourceConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedResourceConfig() != nullptr; }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    QApplication::setActiveWindow(window);
    view->priorityField()->setFocus();
    view->priorityField()->selectAll();
    QTest::keyClicks(view->priorityField(), QStringLiteral("0.25"));
    view->uriField()->setFocus();
    view->uriField()->selectAll();
    QTest::keyClicks(view->uriField(), QStringLiteral("file:///srv/notes.md"));
    ASSERT_TRUE(view->uriField()->hasFocus());
    EXPECT_TRUE(waitUntil([&] { return view->button("save")->isEnabled(); }));

    MenuCommandDispatcher::shared()->perform(MenuCommand::Quit, window->commandContext());
    clickInBox(QStringLiteral("Cancel"));
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(waitUntil([&] { return view->uriField()->hasFocus(); }));

    MenuCommandDispatcher::shared()->perform(MenuCommand::Quit, window->commandContext());
    clickInBox(QStringLiteral("Save"));
    ASSERT_TRUE(waitUntil([&] { return !window->isVisible(); }));
    TestServices::application().context()->rollback();
    ASSERT_EQ(controller->resourceConfigs().size(), 1);
    EXPECT_EQ(ResourceConfigController::uriText(controller->resourceConfigs().first()), "file:///srv/notes.md");
    EXPECT_EQ(controller->resourceConfigs().first()->annPriority(), 0.25);
    removeAllResources(controller);
}

// Del on the list while a new record is being added is refused like the button; a delete
// confirmed some other way ends the adding, so Add, Save and Revert work again.
TEST_F(ConfigScreensViewTest, DeleteWhileAddingIsRefusedAndAConfirmedOneEndsTheAdding)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ResourceConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedResourceConfig() != nullptr && controller->isAdding(); }));

    QApplication::setActiveWindow(window);
    view->list()->setFocus();
    QTest::keySequence(view->list(), QKeySequence::Delete);
    TestSupport::spin(50);
    EXPECT_EQ(openMessageBox(), nullptr);
    EXPECT_FALSE(controller->showingDeleteConfirmation());
    EXPECT_EQ(controller->resourceConfigs().size(), 1);

    controller->setFocus(ResourceConfigController::resourceListView);
    ASSERT_TRUE(waitUntil([&] { return controller->focusedField() == ResourceConfigController::resourceListView; }));
    controller->deleteButtonTapped();
    clickInBox(QStringLiteral("Delete"));
    ASSERT_TRUE(waitUntil([&] { return controller->resourceConfigs().isEmpty(); }));
    EXPECT_FALSE(controller->isAdding());
    EXPECT_FALSE(controller->hasUnsavedChanges());
    EXPECT_FALSE(TestServices::application().context()->hasChanges());

    // Adding works again, and its revert leaves nothing behind.
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->resourceConfigs().size() == 1 && controller->hasUnsavedChanges(); }));
    EXPECT_EQ(openMessageBox(), nullptr);
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->resourceConfigs().isEmpty() && !controller->isAdding(); }));
    EXPECT_FALSE(view->button("save")->isEnabled());
}

// Windows share the application's controllers: a record being added in one window is the
// one being added in the other, and a close that discards it ends the adding everywhere.
TEST_F(ConfigScreensViewTest, TwoWindowsShareOneAddingState)
{
    AppMainWindow *first = launchedWindow(MenuDestination::menuResourceConfig);
    AppMainWindow *second = launchedWindow(MenuDestination::menuResourceConfig);
    auto *one = qobject_cast<ResourceConfigView *>(first->currentScreen());
    auto *two = qobject_cast<ResourceConfigView *>(second->currentScreen());
    ASSERT_TRUE(one && two);
    ASSERT_EQ(one->controller(), two->controller());

    one->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return two->list()->count() == 1 && two->controller()->isAdding(); }));
    EXPECT_FALSE(two->button("add")->isEnabled());
    EXPECT_TRUE(two->button("save")->isEnabled());
    // The delete question comes once, in one window.
    two->controller()->setFocus(ResourceConfigController::resourceListView);
    ASSERT_TRUE(waitUntil([&] { return two->controller()->focusedField() == ResourceConfigController::resourceListView; }));
    two->controller()->deleteButtonTapped();
    ASSERT_TRUE(waitUntil([] { return openMessageBox() != nullptr; }));
    int questions = 0;
    for (QWidget *widget : QApplication::topLevelWidgets())
        questions += qobject_cast<QMessageBox *>(widget) && widget->isVisible() ? 1 : 0;
    EXPECT_EQ(questions, 1);
    clickInBox(QStringLiteral("Cancel"));
    ASSERT_TRUE(waitUntil([] { return openMessageBox() == nullptr; }));

    first->close();
    ASSERT_TRUE(waitUntil([&] { return !first->isVisible(); }));
    second->close();
    clickInBox(QStringLiteral("Don't Save"));
    ASSERT_TRUE(waitUntil([&] { return !second->isVisible(); }));

    AppMainWindow *third = launchedWindow(MenuDestination::menuResourceConfig);
    auto *three = qobject_cast<ResourceConfigView *>(third->currentScreen());
    ASSERT_NE(three, nullptr);
    EXPECT_TRUE(waitUntil([&] { return !three->controller()->isAdding() && three->list()->count() == 0; }));
    EXPECT_TRUE(three->button("add")->isEnabled());
}

// A related resource may be a folder: the open panel is asked for a file or a folder with
// the sheet's words, and the chosen folder's path fills the row. An imported audience the
// picker does not offer is shown as it is. The divider beside the list is kept.
TEST_F(ConfigScreensViewTest, AFolderAsRelatedResourceAnyAudienceAndTheKeptDivider)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ResourceConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedResourceConfig() != nullptr; }));

    const QString folder = TestSupport::makeTempDir(QStringLiteral("related"));
    FakeOpenPanel panel;
    panel.answer = QUrl::fromLocalFile(folder);
    AccessPanel::setPresenter(&panel);
    answerDialog(QStringLiteral("relatedResourcesSheet"), [](QDialog *sheet) {
        sheet->findChild<QPushButton *>(QStringLiteral("addRelated"))->click();
        auto *table = sheet->findChild<QTableWidget *>(QStringLiteral("relatedTable"));
        table->setCurrentCell(table->rowCount() - 1, 2);
        sheet->findChild<QPushButton *>(QStringLiteral("chooseRelated"))->click();
    });
    view->editRelatedResources();
    AccessPanel::setPresenter(nullptr);
    ASSERT_EQ(panel.requests.size(), 1);
    EXPECT_EQ(panel.requests.first().message, "Select a file or folder for this related resource");
    EXPECT_EQ(panel.requests.first().prompt, "Select");
    EXPECT_TRUE(panel.requests.first().canChooseFiles && panel.requests.first().canChooseDirectories);
    const QList<RelatedResourceItem> related =
        ResourceConfigController::readRelated(controller->selectedResourceConfig()->relatedResources().value_or(QString()));
    ASSERT_FALSE(related.isEmpty());
    EXPECT_EQ(related.last().url, folder);

    controller->selectedResourceConfig()->setAnnAudience(QStringLiteral("user, assistant"));
    emit controller->changed();
    auto *audience = view->findChild<QComboBox *>(QStringLiteral("resourceAnnAudience"));
    EXPECT_EQ(audience->currentText(), "user, assistant");

    // The user's drag of the divider is what a new screen starts with.
    emit view->splitter()->splitterMoved(340, 1);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("spResourceConfigView")).toDouble(), 340.0);
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->isAdding(); }));
    closeAllWindows();
    window = launchedWindow(MenuDestination::menuResourceConfig);
    view = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(waitUntil([&] { return view->splitter()->sizes().value(0) == 340; })) << view->splitter()->sizes().value(0);
    UserDefaults::standard()->remove(QStringLiteral("spResourceConfigView"));
}

// A prompt row's menu: Duplicate copies the prompt, Paste pastes the copied one, Remove asks
// first. "New Argument" adds one with its defaults at once, pending.
TEST_F(ConfigScreensViewTest, ThePromptRowMenuAndNewArgument)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuPromptConfig);
    auto *view = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    PromptConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedPrompt() != nullptr; }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges() && !controller->isAdding(); }));
    const qsizetype before = controller->prompts().size();
    const QString name = controller->selectedPrompt()->name().value_or(QString());

    const qsizetype arguments = controller->selectedPrompt()->arguments().size();
    view->button("newArgument")->click();
    ASSERT_EQ(controller->selectedPrompt()->arguments().size(), arguments + 1);
    EXPECT_EQ(controller->selectedArgument()->name(), QStringLiteral("New Argument %1").arg(arguments + 1));
    EXPECT_TRUE(waitUntil([&] { return view->button("save")->isEnabled(); }));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    QMenu *menu = view->makeRowMenu();
    QStringList titles;
    for (QAction *action : menu->actions())
        titles.append(action->text());
    EXPECT_EQ(titles, QStringList({"Paste", "Duplicate", "Remove"}));
    menu->findChild<QAction *>(QStringLiteral("duplicatePrompt"))->trigger();
    ASSERT_TRUE(waitUntil([&] { return controller->prompts().size() == before + 1; }));
    EXPECT_EQ(controller->selectedPrompt()->name(), name + QStringLiteral(" Copy"));
    EXPECT_EQ(controller->selectedPrompt()->arguments().size(), arguments + 1);
    delete menu;

    menu = view->makeRowMenu();
    ASSERT_TRUE(menu->findChild<QAction *>(QStringLiteral("pastePrompt"))->isEnabled());
    menu->findChild<QAction *>(QStringLiteral("pastePrompt"))->trigger();
    ASSERT_TRUE(waitUntil([&] { return controller->prompts().size() == before + 2; }));
    delete menu;
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->prompts().size() == before && !controller->hasUnsavedChanges(); }));

    // Remove asks; Delete removes the saved prompt.
    controller->setFocus(PromptConfigController::promptListView);
    ASSERT_TRUE(waitUntil([&] { return controller->focusedField() == PromptConfigController::promptListView; }));
    menu = view->makeRowMenu();
    ASSERT_TRUE(menu->findChild<QAction *>(QStringLiteral("removePrompt"))->isEnabled());
    menu->findChild<QAction *>(QStringLiteral("removePrompt"))->trigger();
    clickInBox(QStringLiteral("Delete"));
    EXPECT_TRUE(waitUntil([&] { return controller->prompts().size() == before - 1; }));
    delete menu;
}

// Messages are typed as JSON: kept as typed even while not valid, with what is wrong shown
// beside them, and carried by a duplicate.
TEST_F(ConfigScreensViewTest, PromptMessagesAreKeptAsTypedAndTheirProblemShown)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuPromptConfig);
    auto *view = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    PromptConfigController *controller = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedPrompt() != nullptr; }));
    PromptConfig *prompt = controller->selectedPrompt();

    const QString half = QStringLiteral(R"([{"role": "system", "content": {"type": "text", "text": "Hi"}}])");
    view->messagesField()->setFocus();
    view->messagesField()->setPlainText(half);
    EXPECT_EQ(prompt->messagesJson(), half);
    EXPECT_FALSE(view->messagesProblemLabel()->isHidden());
    EXPECT_EQ(view->messagesProblemLabel()->text(),
              QStringLiteral("\u26A0 The value of 'messages.0.role' is not \"user\" or \"assistant\"."));
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));
    window->navigate(MenuDestination::menuResourceConfig);
    window->navigate(MenuDestination::menuPromptConfig);
    view = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_TRUE(waitUntil([&] { return view->messagesField()->toPlainText() == half; }));
    EXPECT_FALSE(view->messagesProblemLabel()->isHidden());

    QString whole = half;
    whole.replace(QStringLiteral("system"), QStringLiteral("assistant"));
    view->messagesField()->setFocus();
    view->messagesField()->setPlainText(whole);
    EXPECT_TRUE(view->messagesProblemLabel()->isHidden());
    view->messagesField()->setPlainText(QStringLiteral("  "));
    EXPECT_EQ(prompt->messagesJson(), std::nullopt);  // blank: a prompt of the template alone
    view->messagesField()->setPlainText(whole);
    view->button("save")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));

    QMenu *menu = view->makeRowMenu();
    menu->findChild<QAction *>(QStringLiteral("duplicatePrompt"))->trigger();
    ASSERT_TRUE(waitUntil([&] { return controller->selectedPrompt() != prompt; }));
    EXPECT_EQ(controller->selectedPrompt()->messagesJson(), whole);
    delete menu;
    view->button("revert")->click();
    ASSERT_TRUE(waitUntil([&] { return !controller->hasUnsavedChanges(); }));
}

// The values offered for completion: a template's per variable on the Resources screen, an
// argument's in its sheet; each shows again as it was written, and empty text removes them.
TEST_F(ConfigScreensViewTest, CompletionValuesAreEditedOnBothScreens)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuResourceConfig);
    auto *resources = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(resources, nullptr);
    resources->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return resources->controller()->selectedResourceConfig() != nullptr; }));
    ResourceConfig *resource = resources->controller()->selectedResourceConfig();
    resources->valuesField()->setFocus();
    QTest::keyClicks(resources->valuesField(), QStringLiteral(" id: 1, 2,; no colon; kind:a"));
    EXPECT_EQ(resource->completionValues(), QStringLiteral(R"({"id":["1","2"],"kind":["a"]})"));
    EXPECT_EQ(ResourceConfigController::valuesText(resource), "id: 1, 2; kind: a");
    resources->valuesField()->selectAll();
    QTest::keyClick(resources->valuesField(), Qt::Key_Delete);
    EXPECT_FALSE(resource->completionValues().has_value());
    resources->controller()->revertTapped();

    window->navigate(MenuDestination::menuPromptConfig);
    auto *prompts = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_NE(prompts, nullptr);
    prompts->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return prompts->controller()->selectedPrompt() != nullptr; }));
    PromptConfig *prompt = prompts->controller()->selectedPrompt();
    answerDialog(QStringLiteral("addArgumentSheet"), [](QDialog *sheet) {
        sheet->findChild<QLineEdit *>(QStringLiteral("argumentName"))->setText(QStringLiteral("city"));
        sheet->findChild<QLineEdit *>(QStringLiteral("argumentValues"))->setText(QStringLiteral("Paris, Rome,"));
    });
    prompts->button("addArgument")->click();
    PromptArguments *city = nullptr;
    ASSERT_TRUE(waitUntil([&] {
        for (PromptArguments *argument : prompt->arguments())
            city = argument->name() == QStringLiteral("city") ? argument : city;
        return city != nullptr;
    }));
    EXPECT_EQ(city->completionValues(), QStringLiteral(R"(["Paris","Rome"])"));
    QString shown;
    answerDialog(QStringLiteral("editArgumentSheet"), [&shown](QDialog *sheet) {
        auto *values = sheet->findChild<QLineEdit *>(QStringLiteral("argumentValues"));
        shown = values->text();
        values->clear();
    });
    prompts->button("editArgument")->click();
    ASSERT_TRUE(waitUntil([&] { return !city->completionValues().has_value(); }));
    EXPECT_EQ(shown, "Paris, Rome");
    prompts->controller()->revertTapped();
}
