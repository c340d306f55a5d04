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

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
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
    void SetUp() override { BuiltinFeatures::registerAll(); }
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
    StoreContext *context = PersistenceController::shared()->viewContext();

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
    PersistenceController::shared()->viewContext()->rollback();
    ASSERT_FALSE(controller->resourceConfigs().isEmpty());
    EXPECT_EQ(controller->resourceConfigs().first()->name(), QStringLiteral("TyXped"));
}
