#include "chat/session/PromptPickerModel.h"
#include "chat/session/ResourcePickerModel.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "tests/config/ConfigTestFixture.h"

#include <QUrl>

class ChatPickersTest : public ConfigTestFixture {
protected:
    PromptConfig *addPrompt(const QString &name, const QString &text, QList<std::pair<QString, bool>> arguments)
    {
        auto *prompt = context->insert<PromptConfig>();
        prompt->setName(name);
        prompt->setPromptDescription(QStringLiteral("About ") + name);
        prompt->setTemplateText(text);
        for (const auto &[argument, required] : arguments) {
            PromptArguments *made = PromptQueryService::createArgument(context, prompt);
            made->setName(argument);
            made->setRequired(required);
        }
        return prompt;
    }
};

// The prompt picker: search, a template without arguments goes in as it stands, one with
// arguments waits for the required ones and replaces only exact placeholders.
TEST_F(ChatPickersTest, PromptsAreFoundFilledAndInserted)
{
    PromptPickerModel picker;
    picker.load(context);
    EXPECT_EQ(picker.emptyText(), "No prompts configured.");
    addPrompt("plain", "Just this.", {});
    PromptConfig *greet = addPrompt("greet", "Hello {{who}}, from {{ from }} {{place}} {{}}", {{"who", false}, {"place", true}, {" ", false}});
    ASSERT_TRUE(context->save());
    picker.load(context);
    ASSERT_EQ(picker.visibleRows().size(), 2);
    EXPECT_EQ(picker.visibleRows().at(0)->name(), "greet");  // by name
    picker.searchText = QStringLiteral("  JUST ");
    ASSERT_EQ(picker.visibleRows().size(), 1);
    picker.selected = picker.visibleRows().first();
    EXPECT_EQ(picker.proceed(), "Just this.");
    picker.searchText = QStringLiteral("nothing like it");
    EXPECT_TRUE(picker.visibleRows().isEmpty());
    EXPECT_EQ(picker.emptyText(), "No results");

    picker.selected = greet;
    EXPECT_EQ(picker.proceed(), std::nullopt);
    EXPECT_EQ(picker.step, PromptPickerModel::Step::fillArguments);
    EXPECT_FALSE(picker.canInsert());
    picker.argumentValues.insert("place", "Bern");
    EXPECT_TRUE(picker.canInsert());
    EXPECT_EQ(picker.insertText(), "Hello , from {{ from }} Bern {{}}");
}

// The resource picker: search over the four fields, ticks, and one line per ticked row.
TEST_F(ChatPickersTest, ResourcesAreTickedAndInsertedAsLines)
{
    auto add = [&](const QString &name, const QString &related, const QString &uri) {
        auto *resource = context->insert<ResourceConfig>();
        resource->setName(name);
        resource->setRelatedResources(related);
        resource->setUri(QUrl(uri));
        return resource;
    };
    ResourceConfig *manual = add("Manual", "guide.pdf", "file:///docs/manual.txt");
    ResourceConfig *notes = add("Notes", "", "file:///docs/notes.txt");
    ASSERT_TRUE(context->save());
    ResourcePickerModel picker;
    picker.load(context);
    picker.searchText = QStringLiteral("GUIDE");
    ASSERT_EQ(picker.visibleRows().size(), 1);
    picker.searchText = QStringLiteral("docs/");
    EXPECT_EQ(picker.visibleRows().size(), 2);
    EXPECT_EQ(picker.insertText(), "");
    picker.toggle(notes);
    picker.toggle(manual);
    EXPECT_EQ(picker.footerText(), "2 resource selected");
    EXPECT_EQ(picker.insertText(), "Manual [guide.pdf]\nNotes");
    picker.toggle(manual);
    EXPECT_EQ(picker.insertText(), "Notes");
}
