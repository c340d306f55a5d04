#include "app/config/ToolInputSchemaEditor.h"
#include "app/config/ToolOutputSchemaEditor.h"
#include "store/ToolsConfig.h"
#include "store/ToolInputSchemaSnapshot.h"
#include "app/config/ToolsConfigController.h"
#include "store/ToolsQueryService.h"
#include "tests/store/StoreTestUtil.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

using TestSupport::waitUntil;

namespace {

class ToolsConfigControllerTest : public StoreTest {
protected:
    std::unique_ptr<ToolsConfigController> makeController()
    {
        auto controller = std::make_unique<ToolsConfigController>(context, &clipboard);
        QSignalSpy reloaded(controller.get(), &StoreBackedController::recordsChanged);
        EXPECT_TRUE(waitUntil([&] { return reloaded.count() > 0; }));
        return controller;
    }

    void focus(ToolsConfigController *tools, ToolsConfigController::ToolsFocusedField field)
    {
        tools->setFocus(field);
        ASSERT_TRUE(waitUntil([&] { return tools->focusedField() == field; }));
    }

    ConfigClipboard clipboard;
};

}  // namespace

TEST_F(ToolsConfigControllerTest, TypeChangesResetTheMethodAndKeepTheRest)
{
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    tool->setToolType(QStringLiteral("ScriptTool"));
    tool->setMethodName(QStringLiteral("toolEntry"));
    tool->setScriptFileName(QStringLiteral("/home/me/tool.js"));
    tool->setTitle(QStringLiteral("A title"));
    ASSERT_TRUE(context->save());
    auto tools = makeController();
    ASSERT_EQ(tools->selectedTool(), tool);

    tools->setToolType(QStringLiteral("CustomTool"));
    EXPECT_EQ(tool->methodName(), QStringLiteral("toolEntry"));
    EXPECT_EQ(tool->scriptFileName(), QStringLiteral("/home/me/tool.js"));
    tools->setMethodName(QStringLiteral("myOwnMethod"));
    tools->setToolType(QStringLiteral("BuiltinTool"));
    EXPECT_EQ(tool->methodName(), QStringLiteral("listFiles"));  // a hand-written method is overwritten
    EXPECT_EQ(ToolsConfigController::methodLabel(QStringLiteral("readFile")), "Read file from file system (readFile)");
    EXPECT_EQ(ToolsConfigController::methodLabel(QStringLiteral("toolEntry")), "Custom tool (toolEntry)");
    EXPECT_EQ(ToolsConfigController::methodLabel(QStringLiteral("listEvents")), "List calendar events (listEvents)");
    EXPECT_EQ(ToolsConfigController::typeLabel(QStringLiteral("ScriptTool")), "Script tool handler");

    // Copied, then pasted twice: two tools of the same " Copy" name, neither with a title.
    focus(tools.get(), ToolsConfigController::toolsListView);
    tools->copySelectedItem();
    tools->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return tools->tools().size() == 2; }));
    tools->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return tools->tools().size() == 3; }));
    for (ToolsConfig *pasted : {tools->tools().at(1), tools->tools().at(2)}) {
        EXPECT_EQ(pasted->name(), QStringLiteral("New Tool #1 Copy"));
        EXPECT_FALSE(pasted->title().has_value());
        EXPECT_EQ(pasted->toolType(), QStringLiteral("BuiltinTool"));
    }
    EXPECT_EQ(tools->focusedField(), std::optional<int>(ToolsConfigController::toolName));

    // Adding while adding is refused with its alert.
    tools->addToolTapped();
    ASSERT_TRUE(waitUntil([&] { return tools->tools().size() == 4; }));
    tools->addToolTapped();
    ASSERT_TRUE(waitUntil([&] { return tools->shouldShowAlert(); }));
    EXPECT_EQ(tools->alertMessage(), "Commit or revert current changes first.");
}

TEST_F(ToolsConfigControllerTest, SchemasAreAddedEditedDeletedAndPastedByFocus)
{
    ToolsQueryService::createTool(context, 0);
    ASSERT_TRUE(context->save());
    auto tools = makeController();
    ToolsConfig *tool = tools->selectedTool();
    ASSERT_NE(tool, nullptr);

    tools->addInputSchemaTapped();
    EXPECT_TRUE(tools->showingEditInputSchema());
    EXPECT_TRUE(tools->isNewSchema());
    ToolInputSchema *schema = tools->selectedInputScheme();
    ASSERT_NE(schema, nullptr);
    ToolInputSchemaEditor editor(tools.get(), schema, true);
    ASSERT_NE(editor.selectedProperty(), nullptr);
    EXPECT_EQ(editor.schemaType(), "object");

    // The form is written field by field; an object's members become pretty JSON.
    editor.setParameterName(QStringLiteral("point"));
    editor.setParameterType(QStringLiteral("object"));
    editor.addObjectProperty();
    editor.setObjectProperty(0, ObjectProperty{QUuid::createUuid(), QStringLiteral("x"), QStringLiteral("number"), QStringLiteral("across")});
    editor.addObjectProperty();  // a member without a name goes under ""
    ToolInSchemaParams *point = editor.selectedProperty();
    const QJsonObject items = QJsonDocument::fromJson(point->items().value_or(QString()).toUtf8()).object();
    EXPECT_EQ(items.value("x").toObject(), (QJsonObject{{"type", "number"}, {"description", "across"}}));
    EXPECT_EQ(items.value("").toObject(), (QJsonObject{{"type", "string"}, {"description", ""}}));
    EXPECT_TRUE(point->items()->contains(u'\n'));  // pretty-printed
    // Read back, the members are the same; text that is no JSON gives none.
    EXPECT_EQ(ToolInputSchemaEditor::formOf(point).objectProperties.size(), 2);
    EXPECT_TRUE(PropertyData::parseObjectProperties(QStringLiteral("x: number")).isEmpty());

    // Type changes: to array keeps the item type, to string resets it.
    ToolInSchemaParams *second = editor.addParameter();
    EXPECT_EQ(editor.selectedProperty(), second);
    EXPECT_EQ(editor.lastSelection(), point);
    editor.setParameterName(QStringLiteral("tags"));
    editor.setParameterType(QStringLiteral("array"));
    editor.setItemType(QStringLiteral("string"));
    editor.setParameterType(QStringLiteral("array"));
    EXPECT_EQ(second->itemType(), QStringLiteral("string"));
    editor.setParameterType(QStringLiteral("string"));
    EXPECT_EQ(second->itemType(), QStringLiteral("null"));

    // Showing a parameter again writes nothing new.
    editor.setRequiredParams(QStringLiteral("point"));
    editor.save();
    ASSERT_TRUE(waitUntil([&] { return !tools->hasUnsavedChanges(); }));
    EXPECT_EQ(schema->requiredParams(), QStringLiteral("point"));
    EXPECT_FALSE(tools->showingEditInputSchema());
    ToolInputSchemaEditor again(tools.get(), schema, false);
    again.select(ToolsQueryService::sortedProperties(schema).last());
    again.select(ToolsQueryService::sortedProperties(schema).first());
    EXPECT_FALSE(context->hasChanges());

    // Copy the schema with the focus on its button, paste it into the same tool.
    focus(tools.get(), ToolsConfigController::inputSchemeButton);
    EXPECT_TRUE(tools->canCopy());
    tools->copySelectedItem();
    tools->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return tool->inputSchemas().size() == 2; }));
    EXPECT_EQ(tools->selectedInputScheme()->properties().size(), 2);

    // Delete both input schemas: then canDelete on the button is false.
    for (int i = 0; i < 2; ++i) {
        tools->deleteButtonTapped();
        ASSERT_TRUE(tools->showingDeleteInputSchemaConfirmation());
        tools->confirmDeleteInputSchema();
    }
    EXPECT_TRUE(tool->inputSchemas().isEmpty());
    EXPECT_FALSE(tools->canDelete());
    EXPECT_FALSE(tools->canEditSchema());

    // The editor's revert of a schema it made takes the schema away again.
    tools->saveButtonTapped();
    ASSERT_TRUE(waitUntil([&] { return !tools->hasUnsavedChanges(); }));
    tools->addOutputSchemaTapped();
    ToolOutputSchemaEditor output(tools.get(), tools->selectedOutputScheme(), true);
    output.setParameterName(QStringLiteral("result"));
    output.revert();
    EXPECT_TRUE(tool->outputSchmas().isEmpty());
    // The mark follows the context: the tool's list was touched, as the child rule leaves it.
    EXPECT_EQ(tools->hasUnsavedChanges(), context->hasChanges());
}

TEST_F(ToolsConfigControllerTest, FilterRowsAndToolDelete)
{
    ToolsConfig *a = ToolsQueryService::createTool(context, 0);
    a->setName(QStringLiteral("read_notes"));
    ToolsConfig *b = ToolsQueryService::createTool(context, 1);
    b->setName(QString());
    b->setToolDescription(QString());
    ASSERT_TRUE(context->save());
    auto tools = makeController();
    EXPECT_EQ(tools->filteredTools(QStringLiteral(" NOTES ")).size(), 1);
    EXPECT_EQ(ToolsConfigController::rowName(b), "Unnamed Tool");
    EXPECT_EQ(ToolsConfigController::rowDescription(b), "No description");
    EXPECT_EQ(ToolsConfigController::rowSchemas(a), "Input: 0  Output: 0");

    // Pasting a schema without a tool is refused.
    tools->setSelectedRecord(nullptr);
    ToolInputSchemaSnapshot snapshot;
    snapshot.id = QUuid::createUuid();
    snapshot.type = QStringLiteral("object");
    clipboard.store(snapshot, ConfigClipboard::toolInputSchemaType);
    EXPECT_FALSE(tools->canPaste());
    tools->pasteItem();
    ASSERT_TRUE(waitUntil([&] { return tools->shouldShowAlert(); }));
    EXPECT_EQ(tools->alertMessage(), "Select a tool before pasting an input schema.");

    tools->setSelectedRecord(b);
    focus(tools.get(), ToolsConfigController::toolsListView);
    tools->deleteButtonTapped();
    EXPECT_EQ(tools->deleteToolText(), "Are you sure you want to delete 'Unnamed Tool'? This cannot be undone.");
    tools->confirmDelete();
    ASSERT_TRUE(waitUntil([&] { return tools->tools().size() == 1 && tools->selectedTool() == a; }));
}
