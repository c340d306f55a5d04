#include "app/config/ServerConfigController.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/StoreContext.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolsQueryService.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "app/config/ToolsConfigController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/server/ServerConfigView.h"
#include "views/tools/ToolResultView.h"
#include "views/tools/ToolSchemaEditorDialog.h"
#include "views/tools/ToolsConfigView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>
#include <QTimer>
#include <QUrl>

#include <memory>

using namespace ViewsTestSupport;
using TestSupport::waitUntil;

namespace {

// Fills the schema editor that the screen opens, through its widgets, then saves it.
void fillNextSchemaEditor(const QString &name, std::function<void(ToolSchemaEditorDialog *)> fill)
{
    QTimer::singleShot(100, [name, fill] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *dialog = qobject_cast<ToolSchemaEditorDialog *>(widget);
            if (dialog && dialog->objectName() == name && dialog->isVisible()) {
                fill(dialog);
                dialog->saveAndClose();
                return;
            }
        }
        ADD_FAILURE() << "no schema editor " << name.toStdString();
    });
}

// Runs fill on the schema editor once the screen has opened it (it opens as a later step).
void whenSchemaEditorOpens(std::function<void(ToolSchemaEditorDialog *)> fill)
{
    auto *poll = new QTimer;
    poll->setInterval(20);
    auto tries = std::make_shared<int>(0);
    QObject::connect(poll, &QTimer::timeout, [poll, fill, tries] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *dialog = qobject_cast<ToolSchemaEditorDialog *>(widget);
            if (dialog && dialog->isVisible()) {
                poll->stop();
                poll->deleteLater();
                fill(dialog);
                return;
            }
        }
        if (++*tries > 500) {
            poll->stop();
            poll->deleteLater();
            ADD_FAILURE() << "no schema editor";
        }
    });
    poll->start();
}

void type(QLineEdit *field, const QString &text)
{
    field->clear();
    QTest::keyClicks(field, text);
}

void choose(QComboBox *box, const QString &text)
{
    box->setCurrentText(text);
    emit box->textActivated(text);
}

// One parameter in the open editor: the selected one gets the name and type.
void parameter(ToolSchemaEditorDialog *dialog, const QString &name, const QString &kind)
{
    type(dialog->nameField(), name);
    choose(dialog->typeChoice(), kind);
}

}  // namespace

// (A parameter may not be called "name": the server puts the tool's own name there, as it
// does sessionId, title and the execution fields.)
// A script tool made on the Tools screen, with an input schema of two parameters and an
// output schema, is saved; the server started from the Server screen lists it to the
// official SDK client with exactly those schemas, and the call runs the script.
TEST(ToolsScreen, AScriptToolMadeOnTheScreenIsServedWithItsSchemas)
{
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    const QString client = QStringLiteral(KELVARA_SOURCE_DIR "/tests/interop/mcp-client.mjs");
    ASSERT_FALSE(node.isEmpty()) << "node is needed (scripts/setup installs it)";
    ASSERT_TRUE(QDir(QStringLiteral(KELVARA_SOURCE_DIR "/tests/interop/node_modules/@modelcontextprotocol/sdk")).exists())
        << "the pinned SDK client is needed: npm ci in tests/interop (scripts/test does it)";

    const QString scripts = TestSupport::makeTempDir(QStringLiteral("scripts"));
    const QString scriptPath = scripts + QStringLiteral("/greet.js");
    QFile script(scriptPath);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("function toolEntry(sid, handlerName, jsonParams) {\n"
                 "  return Tool.dispatch({\n"
                 "    greet: function (params) {\n"
                 "      var text = ('Hello ' + params.person + '! ').repeat(params.times || 1).trim();\n"
                 "      return { text: text, metadata: { greeting: text } };\n"
                 "    }\n"
                 "  }, sid, handlerName, jsonParams);\n"
                 "}\n");
    script.close();

    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuToolConfig);
    auto *view = qobject_cast<ToolsConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ToolsConfigController *tools = view->controller();

    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return tools->selectedTool() && tools->isAddingTool(); }));
    ToolsConfig *tool = tools->selectedTool();
    type(view->nameField(), QStringLiteral("greet_person"));
    emit view->nameField()->editingFinished();
    view->typeChoice()->setCurrentIndex(1);
    emit view->typeChoice()->activated(1);
    EXPECT_EQ(tool->toolType(), QStringLiteral("ScriptTool"));
    EXPECT_EQ(tool->methodName(), QStringLiteral("toolEntry"));
    tools->setScriptFile(scriptPath);  // what the "Select JavaScript File" panel writes
    EXPECT_EQ(view->scriptLabel()->text(), scriptPath);
    tools->setHandlerName(QStringLiteral("greet"));

    fillNextSchemaEditor(QStringLiteral("inputSchemaEditor"), [](ToolSchemaEditorDialog *dialog) {
        parameter(dialog, QStringLiteral("person"), QStringLiteral("string"));
        dialog->addParameter();
        parameter(dialog, QStringLiteral("times"), QStringLiteral("number"));
        QTest::keyClicks(dialog->findChild<QLineEdit *>(QStringLiteral("requiredParams")), QStringLiteral("person"));
    });
    view->button("addInput")->click();
    ASSERT_TRUE(waitUntil([&] { return !tools->showingEditInputSchema() && !tool->inputSchemas().isEmpty(); }, 10000));
    fillNextSchemaEditor(QStringLiteral("outputSchemaEditor"), [](ToolSchemaEditorDialog *dialog) {
        parameter(dialog, QStringLiteral("greeting"), QStringLiteral("string"));
    });
    view->button("addOutput")->click();
    ASSERT_TRUE(waitUntil([&] { return !tools->showingEditOutputSchema() && !tool->outputSchmas().isEmpty(); }, 10000));
    ASSERT_TRUE(waitUntil([&] { return !tools->hasUnsavedChanges(); }));  // the editors saved

    // The Server screen starts the server.
    window->close();
    AppMainWindow *serverWindow = launchedWindow(MenuDestination::menuServerConfig);
    auto *server = qobject_cast<ServerConfigView *>(serverWindow->currentScreen());
    ASSERT_NE(server, nullptr);
    ServerConfigController *control = server->controller();
    ASSERT_TRUE(waitUntil([&] { return control->serverConfig() != nullptr; }));
    const int port = TestSupport::freeLowPort();
    control->setPort(QString::number(port));
    control->save();
    control->start();
    ASSERT_TRUE(waitUntil([&] { return control->isServerRunning(); }, 15000));
    ASSERT_EQ(control->listeningPort(), port);

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MCP_BEARER_TOKEN"), control->accessToken());
    process.setProcessEnvironment(environment);
    const QString steps = QStringLiteral(
        R"([{"op":"listTools"},{"op":"callTool","name":"greet_person","arguments":{"person":"Ada","times":2}}])");
    process.start(node, {client, QStringLiteral("http://127.0.0.1:%1/mcp").arg(port), steps});
    ASSERT_TRUE(process.waitForStarted());
    // The server answers from this thread's event loop: wait without blocking it.
    ASSERT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60000));
    const QByteArray output = process.readAllStandardOutput();
    ASSERT_EQ(process.exitCode(), 0) << output.toStdString() << process.readAllStandardError().toStdString();
    const QJsonArray results = QJsonDocument::fromJson(output).object().value("results").toArray();
    ASSERT_EQ(results.size(), 2);

    QJsonObject listed;
    for (const QJsonValue &t : results.at(0).toObject().value("result").toObject().value("tools").toArray())
        if (t.toObject().value("name").toString() == "greet_person")
            listed = t.toObject();
    ASSERT_FALSE(listed.isEmpty()) << output.toStdString();
    const QJsonObject input = listed.value("inputSchema").toObject();
    EXPECT_EQ(input.value("type").toString(), "object");
    EXPECT_EQ(input.value("properties").toObject().keys(), QStringList({"person", "times"}));
    EXPECT_EQ(input.value("properties").toObject().value("times").toObject().value("type").toString(), "number");
    EXPECT_EQ(input.value("required").toArray(), QJsonArray({"person"}));
    EXPECT_EQ(listed.value("outputSchema").toObject().value("properties").toObject().keys(), QStringList({"greeting"}));

    const QJsonObject called = results.at(1).toObject().value("result").toObject();
    EXPECT_EQ(called.value("structuredContent").toObject().value("greeting").toString(), "Hello Ada! Hello Ada!")
        << output.toStdString();

    control->stop();
    ASSERT_TRUE(waitUntil([&] { return !control->isServerRunning(); }, 15000));
    closeAllWindows();
}

// "Edit…" on a tool without a schema makes its first one. The editor writes each keystroke
// (the schema's own fields too), has an items field for a parameter that is not an object,
// and shows a stored type its picker does not offer. The form counts parameters, and the
// list's row follows the name as it is typed.
TEST(ToolsScreen, TheSchemaEditorsFieldsAndTheToolsRow)
{
    BuiltinFeatures::registerAll();
    AppMainWindow *window = launchedWindow(MenuDestination::menuToolConfig);
    auto *view = qobject_cast<ToolsConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    ToolsConfigController *tools = view->controller();
    view->button("add")->click();
    ASSERT_TRUE(waitUntil([&] { return tools->selectedTool() && tools->isAddingTool(); }));
    ToolsConfig *tool = tools->selectedTool();
    QApplication::setActiveWindow(window);
    view->nameField()->setFocus();
    type(view->nameField(), QStringLiteral("row_follows"));
    QListWidgetItem *row = view->list()->currentItem();
    ASSERT_NE(row, nullptr);
    EXPECT_TRUE(row->text().startsWith(QStringLiteral("row_follows\n"))) << row->text().toStdString();

    ToolInSchemaParams *written = nullptr;
    whenSchemaEditorOpens([&](ToolSchemaEditorDialog *dialog) {
        ToolInputSchema *schema = tools->selectedInputScheme();
        type(dialog->findChild<QLineEdit *>(QStringLiteral("requiredParams")), QStringLiteral("tags"));
        EXPECT_EQ(schema->requiredParams(), QStringLiteral("tags"));  // pending at once
        parameter(dialog, QStringLiteral("tags"), QStringLiteral("array"));
        ASSERT_TRUE(dialog->itemsField()->isEnabled());
        type(dialog->itemsField(), QStringLiteral("{\"type\":\"string\"}"));
        written = ToolsQueryService::sortedProperties(schema).value(0);  // the only one so far
        // A stored type the picker does not list (as an import brings) shows as it is.
        dialog->addParameter();
        ToolInSchemaParams *second = nullptr;
        for (ToolInSchemaParams *param : ToolsQueryService::sortedProperties(schema))
            second = param != written ? param : second;
        ASSERT_NE(second, nullptr);
        const auto rowOf = [&](ToolInSchemaParams *param) {
            return int(ToolsQueryService::sortedProperties(schema).indexOf(param));
        };
        dialog->parameterList()->setCurrentRow(rowOf(written));
        second->setParameterType(QStringLiteral("integer"));
        dialog->parameterList()->setCurrentRow(rowOf(second));
        EXPECT_EQ(dialog->typeChoice()->currentText(), "integer");
        type(dialog->nameField(), QStringLiteral("count"));
        dialog->saveAndClose();
    });
    view->button("editInput")->click();
    ASSERT_TRUE(waitUntil([&] { return written != nullptr && !tools->showingEditInputSchema(); }, 10000));
    ASSERT_EQ(tool->inputSchemas().size(), 1);
    EXPECT_EQ(written->parameterType(), QStringLiteral("array"));
    EXPECT_EQ(written->items(), QStringLiteral("{\"type\":\"string\"}"));
    ASSERT_TRUE(waitUntil([&] { return !tools->hasUnsavedChanges(); }));
    EXPECT_EQ(view->inputCountLabel()->text(), "Input Schema contains 2 entries");

    // Served as written: the array's items reach the exported schema.
    const auto exported = ConfigurationController::toolConfig(tool);
    ASSERT_TRUE(exported.ok());
    const QJsonObject properties = exported->toJson().value("inputSchema").toObject().value("properties").toObject();
    EXPECT_EQ(properties.value("tags").toObject().value("items").toObject().value("type").toString(), "string")
        << QJsonDocument(exported->toJson()).toJson().toStdString();
    EXPECT_EQ(properties.value("count").toObject().value("type").toString(), "integer");

    // A screen shown for the first time highlights the row its controller selects.
    {
        ToolsConfigView fresh;
        fresh.show();
        ASSERT_TRUE(waitUntil([&] { return fresh.controller()->selectedTool() != nullptr; }));
        ASSERT_NE(fresh.list()->currentItem(), nullptr);
        EXPECT_TRUE(fresh.list()->currentItem()->text().startsWith(
            ToolsConfigController::rowName(fresh.controller()->selectedTool()) + u'\n'));
    }

    PersistenceController::shared()->viewContext()->deleteObject(tool);
    ASSERT_TRUE(PersistenceController::shared()->viewContext()->save());
    closeAllWindows();
}

// The schema editor's "JSON" tab writes the tool's whole input schema as typed, and the form
// shows what it wrote; text that is no schema is named and changes nothing. A string
// parameter's enum values are edited in the form and go along when it is renamed. The title
// and hints set on the screen are pending at once and reach the exported tool.
TEST(ToolsScreen, TheJsonTabEnumValuesAndHints)
{
    QTemporaryDir folder;
    PersistenceController store(folder.filePath(QStringLiteral("Kelvara.sqlite")));
    StoreContext *context = store.viewContext();
    auto *tool = context->insert<ToolsConfig>();
    tool->setName(QStringLiteral("weather"));
    tool->setToolType(QStringLiteral("BuiltinTool"));
    tool->setMethodName(QStringLiteral("readFile"));
    auto *schema = context->insert<ToolInputSchema>();
    tool->addInputSchemasObject(schema);
    ASSERT_TRUE(context->save());
    auto *controller = new ToolsConfigController(context);  // the view owns it
    ToolsConfigController &tools = *controller;
    ToolsConfigView view(controller);
    view.show();
    ASSERT_TRUE(waitUntil([&] { return tools.selectedTool() == tool; }));

    ToolSchemaEditorDialog dialog(std::make_unique<ToolInputSchemaEditor>(&tools, schema, false), true);
    dialog.show();
    dialog.tabs()->setCurrentIndex(1);
    EXPECT_EQ(QJsonDocument::fromJson(dialog.jsonEditor()->toPlainText().toUtf8()).object(),
              QJsonObject({{"type", "object"}, {"properties", QJsonObject()}}));
    for (const auto &[text, message] : {std::pair{"{\"type\": ", "Not valid JSON"},
                                        {"[1]", "A schema is a JSON object."},
                                        {"{\"properties\": []}", "\"properties\" must be an object."},
                                        {"{\"required\": [\"a\", 1]}", "\"required\" must be an array of names."}}) {
        dialog.jsonEditor()->setPlainText(QString::fromUtf8(text));
        EXPECT_TRUE(dialog.jsonMessage()->text().startsWith(QString::fromUtf8(message))) << dialog.jsonMessage()->text().toStdString();
        EXPECT_FALSE(tool->inputSchemaJson().has_value()) << text;
        EXPECT_TRUE(ToolsQueryService::sortedProperties(schema).isEmpty()) << text;
    }
    const QJsonObject typed = QJsonDocument::fromJson(R"({"type": "object", "$defs": {"code": {"type": "string"}},
        "properties": {"unit": {"type": "string", "enum": ["C", "F"], "description": "Unit"},
                       "days": {"type": "integer", "minimum": 1}},
        "required": ["days"], "additionalProperties": false})").object();
    dialog.jsonEditor()->setPlainText(QString::fromUtf8(QJsonDocument(typed).toJson()));
    EXPECT_EQ(dialog.jsonMessage()->text(), QString());
    EXPECT_EQ(ConfigurationController::storedObject(tool->inputSchemaJson()), typed);
    EXPECT_EQ(schema->requiredParams(), QStringLiteral("days"));
    EXPECT_TRUE(tools.hasUnsavedChanges());

    // The form shows the parameters the text made.
    dialog.tabs()->setCurrentIndex(0);
    ASSERT_EQ(dialog.parameterList()->count(), 2);
    QStringList shown;
    for (int row = 0; row < dialog.parameterList()->count(); ++row)
        shown.append(dialog.parameterList()->item(row)->text());
    ASSERT_TRUE(shown.contains("unit")) << shown.join(u',').toStdString();
    dialog.parameterList()->setCurrentRow(int(shown.indexOf("days")));
    EXPECT_FALSE(dialog.enumField()->isEnabled());  // an integer has no enum field
    dialog.parameterList()->setCurrentRow(int(shown.indexOf("unit")));
    EXPECT_TRUE(dialog.enumField()->isEnabled());
    EXPECT_EQ(dialog.enumField()->text(), "C, F");
    type(dialog.enumField(), QStringLiteral("C, F, K"));
    type(dialog.nameField(), QStringLiteral("scale"));

    dialog.tabs()->setCurrentIndex(1);
    QJsonObject expected = typed;
    QJsonObject properties = expected["properties"].toObject();
    QJsonObject scale = properties.take("unit").toObject();
    scale["enum"] = QJsonArray{"C", "F", "K"};
    properties["scale"] = scale;
    expected["properties"] = properties;
    EXPECT_EQ(QJsonDocument::fromJson(dialog.jsonEditor()->toPlainText().toUtf8()).object(), expected)
        << dialog.jsonEditor()->toPlainText().toStdString();
    dialog.saveAndClose();
    EXPECT_FALSE(context->hasChanges());

    // Title and hints: a partly checked box is a hint left open.
    type(view.titleField(), QStringLiteral("Weather"));
    EXPECT_TRUE(context->hasChanges());  // pending at once
    EXPECT_TRUE(waitUntil([&] { return tools.hasUnsavedChanges(); }));
    ASSERT_EQ(view.hintBoxes().size(), 4);
    EXPECT_EQ(view.hintBoxes().at(0)->checkState(), Qt::PartiallyChecked);
    view.hintBoxes().at(0)->click();
    view.hintBoxes().at(1)->click();
    view.hintBoxes().at(1)->click();
    tools.saveTapped();

    // A new schema takes what the text adds; its revert takes the written schema back too and
    // leaves the other schema's parameters as they were.
    auto *fresh = context->insert<ToolInputSchema>();
    tool->addInputSchemasObject(fresh);
    const std::optional<QString> saved = tool->inputSchemaJson();
    ToolInputSchemaEditor scratch(&tools, fresh, true);
    QJsonObject more = expected;
    QJsonObject moreProperties = more["properties"].toObject();
    moreProperties["extra"] = QJsonObject{{"type", "boolean"}};
    more["properties"] = moreProperties;
    EXPECT_EQ(scratch.applySchemaJson(QString::fromUtf8(QJsonDocument(more).toJson())), std::nullopt);
    EXPECT_EQ(ToolsQueryService::sortedProperties(fresh).size(), 1);
    EXPECT_EQ(ToolsQueryService::sortedProperties(schema).size(), 2);
    scratch.revert();
    EXPECT_EQ(tool->inputSchemaJson(), saved);
    EXPECT_EQ(tool->inputSchemas(), QList<ToolInputSchema *>{schema});
    EXPECT_EQ(ToolsQueryService::sortedProperties(schema).size(), 2);
    const auto exported = ConfigurationController::toolConfig(tool);
    ASSERT_TRUE(exported.ok());
    const QJsonObject json = exported->toJson();
    EXPECT_EQ(json["inputSchema"].toObject(), expected);
    const QJsonObject annotations = json["annotations"].toObject();
    EXPECT_EQ(annotations["title"], "Weather");
    EXPECT_EQ(annotations["readOnlyHint"], true);
    EXPECT_EQ(annotations["destructiveHint"], false);
    EXPECT_FALSE(annotations.contains("idempotentHint"));
    EXPECT_FALSE(annotations.contains("openWorldHint"));
}

// "Run" carries the selected tool out with the typed arguments and shows what it returned:
// text as it is, a line for each other item, a picture of an image; arguments that are no
// JSON object are named instead.
TEST(ToolsScreen, ATestRunShowsWhatTheToolReturns)
{
    QTemporaryDir folder;
    const QString png = QStringLiteral("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");
    QFile script(folder.filePath(QStringLiteral("show.js")));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QStringLiteral(R"JS(
function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({ show: function (p) {
        return [Tool.text('Hello ' + p.who), Tool.image('%1', 'image/png'),
                Tool.resource('file:///n.txt', 'notes', 'text/plain'), Tool.resourceLink('file:///big.bin', 'big')];
    } }, sid, handlerName, jsonParams);
})JS").arg(png).toUtf8());
    script.close();
    PersistenceController store(folder.filePath(QStringLiteral("Kelvara.sqlite")));
    StoreContext *context = store.viewContext();
    auto *tool = context->insert<ToolsConfig>();
    tool->setName(QStringLiteral("show"));
    tool->setToolType(QStringLiteral("ScriptTool"));
    tool->setMethodName(QStringLiteral("toolEntry"));
    tool->setHandlerName(QStringLiteral("show"));
    tool->setScriptFileName(script.fileName());
    ASSERT_TRUE(context->save());
    auto *controller = new ToolsConfigController(context);  // the view owns it
    ToolsConfigController &tools = *controller;
    ToolsConfigView view(controller);
    view.show();
    ASSERT_TRUE(waitUntil([&] { return tools.selectedTool() == tool; }));

    type(view.testArgumentsField(), QStringLiteral("{\"who\": "));
    view.button("runTool")->click();
    EXPECT_TRUE(view.resultView()->toPlainText().startsWith("The arguments must be a JSON object")) << view.resultView()->toPlainText().toStdString();

    type(view.testArgumentsField(), QStringLiteral("{\"who\": \"Ada\"}"));
    view.button("runTool")->click();
    const QStringList lines = view.resultView()->toPlainText().split(u'\n');
    const QString pngSize = ToolResultView::sizeText(QByteArray::fromBase64(png.toLatin1()).size());
    EXPECT_EQ(lines, (QStringList{"Hello Ada", "image: image/png, " + pngSize, QString(QChar::ObjectReplacementCharacter),
                                  "resource file:///n.txt: text/plain, 5 bytes", "link file:///big.bin: big"}))
        << lines.join(u'|').toStdString();
    EXPECT_TRUE(view.resultView()->document()->resource(QTextDocument::ImageResource, QUrl("picture:1")).isValid());
    EXPECT_EQ(ToolResultView::sizeText(12 * 1024), "12 KB");
}
