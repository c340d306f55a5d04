#include "tests/app/config/MiniControllers.h"
#include "tests/store/StoreTestUtil.h"

#include <QSignalSpy>

using TestSupport::spin;
using TestSupport::waitUntil;

namespace {

class StoreBackedControllerTest : public StoreTest {
protected:
    // Two saved resources, "b" and "a", and one prompt with arguments "y" and "x".
    void seed()
    {
        ResourceQueryService::createResourceConfig(context)->setName(QStringLiteral("b"));
        ResourceQueryService::createResourceConfig(context)->setName(QStringLiteral("a"));
        PromptConfig *prompt = PromptQueryService::createPrompt(context, 0);
        prompt->setName(QStringLiteral("p"));
        prompt->arguments().first()->setName(QStringLiteral("y"));
        PromptQueryService::createArgument(context, prompt)->setName(QStringLiteral("x"));
        ASSERT_TRUE(context->save());
    }

    template <class C>
    std::unique_ptr<C> makeController()
    {
        auto controller = std::make_unique<C>(context, &clipboard);
        QSignalSpy reloaded(controller.get(), &StoreBackedController::recordsChanged);
        EXPECT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));  // the first reload has run
        return controller;
    }

    QString resourceName(StoreRecord *record)
    {
        return static_cast<ResourceConfig *>(record)->name().value_or(QString());
    }

    ConfigClipboard clipboard;
};

TEST_F(StoreBackedControllerTest, AddMarksAtOnceMakesTheRecordLaterRefusesASecondAddAndRevertsWhole)
{
    seed();
    auto resources = makeController<MiniResourceController>();
    auto prompts = makeController<MiniPromptController>();

    resources->addTapped();
    EXPECT_TRUE(resources->isAdding());
    EXPECT_FALSE(resources->canAdd());
    EXPECT_EQ(resources->records().size(), 2);  // the record comes as a later step
    ASSERT_TRUE(waitUntil([&] { return resources->records().size() == 3; }));
    StoreRecord *added = resources->records().last();
    EXPECT_TRUE(added->isInserted());
    EXPECT_EQ(resources->selectedRecord(), added);
    EXPECT_TRUE(resources->hasUnsavedChanges());
    EXPECT_EQ(resourceName(added), QStringLiteral("New Resource"));

    // Resources ignore a second add without a word; prompts refuse it with the alert.
    resources->addTapped();
    prompts->addTapped();
    prompts->addTapped();
    ASSERT_TRUE(waitUntil([&] { return prompts->shouldShowAlert(); }));
    EXPECT_EQ(prompts->alertTitle(), QStringLiteral("Error"));
    EXPECT_EQ(prompts->alertMessage(), QStringLiteral("Commit or revert transaction first."));
    spin(20);
    EXPECT_EQ(resources->records().size(), 3);
    EXPECT_EQ(prompts->records().size(), 2);
    EXPECT_FALSE(resources->shouldShowAlert());
    // The new prompt was numbered after the listed prompt.
    EXPECT_EQ(static_cast<PromptConfig *>(prompts->records().last())->name(), QStringLiteral("Text Generator #2"));

    // Revert while adding drops the new record and lists the stored ones again.
    resources->revertTapped();
    EXPECT_FALSE(resources->isAdding());
    EXPECT_TRUE(added->isDetached());
    EXPECT_FALSE(resources->records().contains(added));
    ASSERT_TRUE(waitUntil([&] { return resources->selectedRecord() != nullptr; }));
    EXPECT_EQ(resources->records().size(), 2);
    EXPECT_EQ(resourceName(resources->selectedRecord()), QStringLiteral("a"));
    ASSERT_TRUE(waitUntil([&] { return !resources->hasUnsavedChanges(); }));
}

TEST_F(StoreBackedControllerTest, FailedSaveAlertsAndKeepsTheTransactionForTheNextSave)
{
    auto resources = makeController<MiniResourceController>();
    StoreTestUtil::refuseInserts(path, QStringLiteral("ResourceConfig"), QStringLiteral("disk says no"));
    resources->addTapped();
    ASSERT_TRUE(waitUntil([&] { return resources->records().size() == 1; }));
    resources->saveTapped();
    ASSERT_TRUE(waitUntil([&] { return resources->shouldShowAlert(); }));
    EXPECT_EQ(resources->alertTitle(), QStringLiteral("Error"));
    EXPECT_TRUE(resources->alertMessage().contains(QStringLiteral("disk says no")));
    EXPECT_TRUE(resources->isAdding());
    EXPECT_TRUE(resources->hasUnsavedChanges());

    StoreTestUtil::sql(path, QStringLiteral("DROP TRIGGER refuse"));
    resources->saveTapped();
    EXPECT_FALSE(resources->isAdding());
    EXPECT_FALSE(resources->hasUnsavedChanges());
    EXPECT_EQ(rowCount(QStringLiteral("ResourceConfig")), 1);
}

TEST_F(StoreBackedControllerTest, RevertRefreshesTheSelectionAndDropsAPastedRecord)
{
    seed();
    auto resources = makeController<MiniResourceController>();
    auto *selected = resources->selectedAs<ResourceConfig>();
    selected->setName(QStringLiteral("typed"));
    resources->copySelectedItem();
    resources->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return resources->records().size() == 3; }));
    StoreRecord *pasted = resources->records().last();
    EXPECT_EQ(resourceName(pasted), QStringLiteral("typed Copy"));  // the unsaved edit was copied
    EXPECT_TRUE(resources->hasUnsavedChanges());

    resources->revertTapped();  // not adding: no reload
    EXPECT_EQ(selected->name(), QStringLiteral("a"));
    EXPECT_FALSE(resources->records().contains(pasted));
    EXPECT_NE(resources->selectedRecord(), pasted);
    EXPECT_FALSE(resources->hasUnsavedChanges());
}

TEST_F(StoreBackedControllerTest, ControllersShareOnePendingTransaction)
{
    seed();
    auto resources = makeController<MiniResourceController>();
    auto prompts = makeController<MiniPromptController>();
    // Listed by name, the first selected; with nothing pending, save and revert touch nothing.
    EXPECT_EQ(resourceName(resources->records()[0]), QStringLiteral("a"));
    EXPECT_EQ(resources->selectedRecord(), resources->records()[0]);
    EXPECT_FALSE(resources->canSave());
    QSignalSpy changes(context, &StoreContext::objectsDidChange);
    resources->saveTapped();
    resources->revertTapped();
    spin(20);
    EXPECT_EQ(changes.count(), 0);
    EXPECT_FALSE(resources->shouldShowAlert());

    resources->selectedAs<ResourceConfig>()->setName(QStringLiteral("edited on the resources screen"));
    ASSERT_TRUE(waitUntil([&] { return prompts->hasUnsavedChanges() && resources->hasUnsavedChanges(); }));
    EXPECT_TRUE(prompts->canSave());

    prompts->saveTapped();  // saves the other screen's edit too
    EXPECT_EQ(
        StoreTestUtil::sql(
            path, QStringLiteral("SELECT count(*) FROM ResourceConfig WHERE name = 'edited on the resources screen'"))
            .toInt(),
        1);
    ASSERT_TRUE(waitUntil([&] { return !resources->hasUnsavedChanges(); }));

    auto *resource = resources->selectedAs<ResourceConfig>();
    resource->setName(QStringLiteral("second edit"));
    ASSERT_TRUE(waitUntil([&] { return prompts->hasUnsavedChanges(); }));
    prompts->revertTapped();  // and reverts it
    EXPECT_EQ(resource->name(), QStringLiteral("edited on the resources screen"));
    ASSERT_TRUE(waitUntil([&] { return !resources->hasUnsavedChanges(); }));
}

TEST_F(StoreBackedControllerTest, ConfirmedDeleteSavesOtherPendingEditsToo)
{
    seed();
    auto resources = makeController<MiniResourceController>();
    auto *a = resources->selectedAs<ResourceConfig>();
    auto *b = static_cast<ResourceConfig *>(resources->records()[1]);
    b->setName(QStringLiteral("b, edited"));

    resources->deleteTapped();
    EXPECT_TRUE(resources->showingDeleteConfirmation());
    EXPECT_EQ(resources->recordToDelete(), a);
    EXPECT_EQ(rowCount(QStringLiteral("ResourceConfig")), 2);  // nothing before the confirmation

    resources->confirmDelete();
    EXPECT_FALSE(resources->showingDeleteConfirmation());
    EXPECT_EQ(rowCount(QStringLiteral("ResourceConfig")), 1);
    EXPECT_EQ(StoreTestUtil::sql(path, QStringLiteral("SELECT name FROM ResourceConfig")).toString(),
              QStringLiteral("b, edited"));
    EXPECT_FALSE(resources->hasUnsavedChanges());
    ASSERT_TRUE(waitUntil([&] { return resources->selectedRecord() == b; }));
    EXPECT_EQ(resources->records(), QList<StoreRecord *>{b});
}

TEST_F(StoreBackedControllerTest, ChildDeleteStaysPendingAndRevertBringsItBack)
{
    seed();
    auto prompts = makeController<MiniPromptController>();
    PromptConfig *prompt = prompts->selectedPrompt();
    ASSERT_NE(prompt, nullptr);
    // The focus moves as a later step, with one signal.
    QSignalSpy focus(prompts.get(), &StoreBackedController::focusChanged);
    prompts->setFocus(MiniPromptController::promptArgList);
    EXPECT_EQ(prompts->focusedField(), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return focus.count() == 1; }));
    EXPECT_EQ(prompts->focusedFieldValue(), int(MiniPromptController::promptArgList));
    prompts->setFocus(MiniPromptController::promptArgList);

    prompts->deleteChild(prompt->arguments().first());
    EXPECT_TRUE(prompts->hasUnsavedChanges());
    EXPECT_EQ(prompt->arguments().size(), 1);
    EXPECT_EQ(rowCount(QStringLiteral("PromptArguments")), 2);

    prompts->revertTapped();
    EXPECT_EQ(prompt->arguments().size(), 2);
    EXPECT_FALSE(prompts->hasUnsavedChanges());
    spin(20);
    EXPECT_EQ(prompts->focusedField(), MiniPromptController::promptArgList);  // the non-adding path keeps it
    EXPECT_EQ(focus.count(), 1);
}

TEST_F(StoreBackedControllerTest, PasteTriesIdentifiersInOrder)
{
    seed();
    auto prompts = makeController<MiniPromptController>();
    PromptConfig *original = prompts->selectedPrompt();

    // An argument and then a prompt: both stay on the clipboard, and the prompt, registered
    // first, wins.
    prompts->setFocus(MiniPromptController::promptArgList);
    ASSERT_TRUE(waitUntil([&] { return prompts->focusedField() == MiniPromptController::promptArgList; }));
    prompts->copySelectedItem();
    prompts->setFocus(MiniPromptController::promptListView);
    ASSERT_TRUE(waitUntil([&] { return prompts->focusedField() == MiniPromptController::promptListView; }));
    prompts->copySelectedItem();
    EXPECT_TRUE(clipboard.has(ConfigClipboard::promptArgumentType));

    prompts->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return prompts->records().size() == 2; }));
    EXPECT_EQ(prompts->selectedPrompt()->name(), QStringLiteral("p Copy"));
    EXPECT_EQ(original->arguments().size(), 2);
    EXPECT_FALSE(prompts->isAdding());

    // With only an argument there, the next identifier is used.
    ConfigClipboard argumentsOnly;
    MiniPromptController second(context, &argumentsOnly);
    ASSERT_TRUE(waitUntil([&] { return second.selectedPrompt() != nullptr; }));
    argumentsOnly.store(PromptArgumentSnapshot::fromRecord(*original->arguments()[0]),
                        ConfigClipboard::promptArgumentType);
    PromptConfig *target = second.selectedPrompt();
    second.pasteItem();
    ASSERT_TRUE(waitUntil([&] { return target->arguments().size() == 3; }));
    EXPECT_EQ(target->arguments().last()->name(), QStringLiteral("y Copy"));
}

TEST_F(StoreBackedControllerTest, PasteWithNothingCompatibleSaysNothing)
{
    auto resources = makeController<MiniResourceController>();
    clipboard.store(PromptArgumentSnapshot{QUuid::createUuid(), QStringLiteral("n"), QString(), false},
                    ConfigClipboard::promptArgumentType);
    EXPECT_FALSE(resources->canPaste());
    resources->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return resources->pasteMisses == 1; }));
    EXPECT_FALSE(resources->shouldShowAlert());
    EXPECT_FALSE(context->hasChanges());
}

}  // namespace
