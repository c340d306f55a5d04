#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "app/config/PromptConfigController.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "app/config/ResourceConfigController.h"
#include "store/ResourceQueryService.h"
#include "tests/store/StoreTestUtil.h"

#include <QSignalSpy>

using TestSupport::waitUntil;

namespace {

class ConfigScreensTest : public StoreTest {
protected:
    template <class C>
    std::unique_ptr<C> makeController()
    {
        auto controller = std::make_unique<C>(context, &clipboard);
        QSignalSpy reloaded(controller.get(), &StoreBackedController::recordsChanged);
        EXPECT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
        return controller;
    }

    ConfigClipboard clipboard;
};

}  // namespace

TEST_F(ConfigScreensTest, ResourceFieldsAreWrittenOnlyWhenTheyDiffer)
{
    ResourceConfig *saved = ResourceQueryService::createResourceConfig(context);
    saved->setName(QStringLiteral("notes"));
    ASSERT_TRUE(context->save());
    auto resources = makeController<ResourceConfigController>();
    ASSERT_EQ(resources->selectedResourceConfig(), saved);

    // Showing the record writes back what it shows: no pending change.
    resources->setName(QStringLiteral("notes"));
    resources->setUriText(ResourceConfigController::uriText(saved));
    resources->setPriorityText(ResourceConfigController::priorityText(saved));
    resources->setAudience(QStringLiteral("user"));
    EXPECT_FALSE(context->hasChanges());

    // Letters in the priority change nothing; an empty field clears it (readers take 0.9).
    resources->setPriorityText(QStringLiteral("high"));
    EXPECT_EQ(saved->annPriority(), 0.0);
    EXPECT_FALSE(context->hasChanges());
    resources->setPriorityText(QStringLiteral("0.25"));
    EXPECT_EQ(saved->annPriority(), 0.25);
    resources->setPriorityText(QString());
    EXPECT_FALSE(saved->annPriority().has_value());

    // A URI that does not parse leaves none (the export then writes "").
    resources->setUriText(QStringLiteral("http://exa mple.com/%zz"));
    EXPECT_FALSE(saved->uri().has_value());
    resources->setUriText(QStringLiteral("https://example.com/a"));
    EXPECT_EQ(saved->uri(), QUrl(QStringLiteral("https://example.com/a")));
    EXPECT_TRUE(context->hasChanges());
}

TEST_F(ConfigScreensTest, TagsAndRelatedResourcesReadAndWriteTheirTexts)
{
    // The default "File,Resource" is no JSON: two tags by the comma rule, a JSON array once saved.
    EXPECT_EQ(ResourceConfigController::readTags(QStringLiteral("File,Resource")), QStringList({"File", "Resource"}));
    EXPECT_EQ(ResourceConfigController::readTags(QStringLiteral(" a , b,")), QStringList({"a", "b", ""}));
    EXPECT_EQ(ResourceConfigController::readTags(QStringLiteral("[\"x, y\",\"z\"]")), QStringList({"x, y", "z"}));
    ResourceQueryService::createResourceConfig(context);
    ASSERT_TRUE(context->save());
    auto resources = makeController<ResourceConfigController>();
    ResourceConfig *resource = resources->selectedResourceConfig();
    ASSERT_NE(resource, nullptr);
    QStringList tags = ResourceConfigController::readTags(resource->contextTags().value_or(QString()));
    EXPECT_EQ(tags, QStringList({"File", "Resource"}));
    tags.append(QString());  // an empty row is left out
    resources->saveTags(tags);
    EXPECT_EQ(resource->contextTags(), QStringLiteral("[\"File\",\"Resource\"]"));
    ASSERT_TRUE(context->save());
    resources->saveTags({QStringLiteral("File"), QStringLiteral("Resource")});
    EXPECT_FALSE(context->hasChanges());  // the same text: not written

    // Related resources: undecodable text is an empty list; rows get fresh ids.
    EXPECT_TRUE(ResourceConfigController::readRelated(QStringLiteral("not json")).isEmpty());
    RelatedResourceItem item = RelatedResourceItem::makeNew();
    EXPECT_EQ(item.resourceType, "text/plain");
    item.url = QStringLiteral("/tmp/README");
    item.resourceType = ResourceConfigController::guessMimeType(QStringLiteral("file:///tmp/README"));
    EXPECT_EQ(item.resourceType, "text/plain");  // no extension
    resources->saveRelated({item});
    const QList<RelatedResourceItem> read = ResourceConfigController::readRelated(resource->relatedResources().value_or(QString()));
    ASSERT_EQ(read.size(), 1);
    EXPECT_EQ(read.first().resourceId, item.resourceId);
    EXPECT_NE(read.first().id, item.id);
    EXPECT_EQ(ResourceConfigController::guessMimeType(QStringLiteral("file:///x/report.pdf")), "application/pdf");
    EXPECT_EQ(ResourceConfigController::guessMimeType(QStringLiteral("https://h/page.html")), "text/html");
    EXPECT_EQ(ResourceConfigController::guessMimeType(QStringLiteral("file:///x/data.zzzunknown")), "text/plain");
}

TEST_F(ConfigScreensTest, ResourcesFilterDeleteCopyAndPaste)
{
    for (const char *name : {"Alpha", "Beta"}) {
        ResourceConfig *r = ResourceQueryService::createResourceConfig(context);
        r->setName(QString::fromLatin1(name));
        r->setResourceDescription(QStringLiteral("about %1").arg(QString::fromLatin1(name).toLower()));
    }
    ASSERT_TRUE(context->save());
    auto resources = makeController<ResourceConfigController>();
    EXPECT_EQ(resources->filteredResources(QStringLiteral("  BETA ")).size(), 1);
    EXPECT_EQ(resources->filteredResources(QStringLiteral("about")).size(), 2);
    EXPECT_EQ(resources->filteredResources(QString()).size(), 2);

    EXPECT_FALSE(resources->canPaste());
    resources->copySelectedItem();
    EXPECT_TRUE(resources->canPaste());
    resources->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return resources->resourceConfigs().size() == 3; }));
    resources->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return resources->resourceConfigs().size() == 4; }));
    EXPECT_EQ(resources->selectedResourceConfig()->name(), QStringLiteral("Alpha Copy"));
    EXPECT_EQ(resources->resourceConfigs().at(2)->name(), QStringLiteral("Alpha Copy"));  // twice, two records
    EXPECT_TRUE(resources->hasUnsavedChanges());
    resources->saveButtonTapped();
    ASSERT_TRUE(waitUntil([&] { return !resources->hasUnsavedChanges(); }));

    // Delete asks first, whatever the focus, and then selects the first record.
    resources->deleteButtonTapped();
    EXPECT_TRUE(resources->showingDeleteConfirmation());
    EXPECT_EQ(resources->deleteConfirmationText(), "Are you sure you want to delete Alpha Copy? This action cannot be undone.");
    resources->confirmDelete();
    ASSERT_TRUE(waitUntil([&] { return resources->resourceConfigs().size() == 3; }));
    ASSERT_TRUE(waitUntil([&] { return resources->selectedResourceConfig() == resources->resourceConfigs().first(); }));
    EXPECT_FALSE(context->hasChanges());
}

TEST_F(ConfigScreensTest, PromptsArgumentsFocusAndPaste)
{
    auto prompts = makeController<PromptConfigController>();
    prompts->addPromptTapped();
    ASSERT_TRUE(waitUntil([&] { return prompts->prompts().size() == 1; }));
    PromptConfig *prompt = prompts->selectedPrompt();
    ASSERT_NE(prompt, nullptr);
    // Adding again while adding is refused with the alert.
    prompts->addPromptTapped();
    ASSERT_TRUE(waitUntil([&] { return prompts->shouldShowAlert(); }));
    EXPECT_EQ(prompts->alertMessage(), "Commit or revert transaction first.");
    prompts->setShouldShowAlert(false);
    prompts->saveButtonTapped();
    ASSERT_TRUE(waitUntil([&] { return !prompts->hasUnsavedChanges(); }));

    // Cancelling the add sheet leaves no pending change; saving it adds the argument.
    prompts->addArgumentTapped();
    EXPECT_TRUE(prompts->showingAddArgument());
    prompts->cancelAddArgument();
    EXPECT_FALSE(context->hasChanges());
    prompts->saveNewArgument({QStringLiteral("topic"), QStringLiteral("What about"), true});
    EXPECT_EQ(prompt->arguments().size(), 2);
    EXPECT_EQ(prompts->selectedArgument()->name(), QStringLiteral("topic"));
    EXPECT_EQ(PromptConfigController::rowArguments(prompt), "Arguments: 2 · Required args");
    prompts->saveButtonTapped();
    ASSERT_TRUE(waitUntil([&] { return !prompts->hasUnsavedChanges(); }));

    // Pasting an argument twice gives two " Copy" arguments of the same name.
    prompts->setFocus(PromptConfigController::promptArgList);
    ASSERT_TRUE(waitUntil([&] { return prompts->focusedField() == PromptConfigController::promptArgList; }));
    EXPECT_TRUE(prompts->canCopy());
    prompts->copySelectedItem();
    prompts->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return prompt->arguments().size() == 3; }));
    prompts->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return prompt->arguments().size() == 4; }));
    int copies = 0;
    for (PromptArguments *a : prompt->arguments())
        copies += a->name() == QStringLiteral("topic Copy");
    EXPECT_EQ(copies, 2);

    // Reverting with the focus on the argument list: the new arguments go, the first
    // remaining one is selected.
    prompts->revertButtonTapped();
    EXPECT_EQ(prompt->arguments().size(), 2);
    EXPECT_EQ(prompts->selectedArgument(), PromptQueryService::sortedArguments(prompt).first());

    // Deleting arguments: a confirmation; when none are left a revert moves the focus.
    prompts->deleteButtonTapped();
    EXPECT_TRUE(prompts->showingDeleteArgumentConfirmation());
    EXPECT_TRUE(prompts->deleteArgumentText().startsWith("Are you sure you want to delete argument "));
    prompts->confirmDeleteArgument();
    EXPECT_EQ(prompt->arguments().size(), 1);
    EXPECT_NE(prompts->selectedArgument(), nullptr);

    // The delete command on the name field does nothing, though canDelete says yes there.
    prompts->setFocus(PromptConfigController::promptName);
    ASSERT_TRUE(waitUntil([&] { return prompts->focusedField() == PromptConfigController::promptName; }));
    EXPECT_TRUE(prompts->canDelete());
    prompts->deleteButtonTapped();
    EXPECT_FALSE(prompts->showingDeleteConfirmation());
    EXPECT_FALSE(prompts->showingDeleteArgumentConfirmation());

    // An argument pasted without a prompt is refused with its alert.
    prompts->setSelectedRecord(nullptr);
    prompts->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return prompts->shouldShowAlert(); }));
    EXPECT_EQ(prompts->alertTitle(), "Paste Error");
    EXPECT_EQ(prompts->alertMessage(), "Select a prompt before pasting an argument.");
    EXPECT_EQ(prompts->filteredPrompts(QStringLiteral("no such")).size(), 0);
    EXPECT_EQ(prompts->filteredPrompts(QStringLiteral("TEXT generator")).size(), 1);
}
