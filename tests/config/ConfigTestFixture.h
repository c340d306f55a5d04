#pragma once

#include "base/AppPaths.h"
#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/ResourceConfig.h"
#include "store/StoreContext.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "tests/support/LogLines.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/MCPServer.h"
#include "tools/security/BookmarkController.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <gtest/gtest.h>
#include <memory>

// One schema parameter of a test tool.
struct ConfigTestParam {
    std::optional<QString> name;
    QString type = QStringLiteral("string");
    QString itemType = QStringLiteral("null");
    QString items;
    QString description;
    QString defaultValue;
};

// A store of its own, a bridge and router of their own, and a configuration controller
// that exports to and imports from folders of the test.
class ConfigTestFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = TestSupport::makeTempDir(QStringLiteral("config"));
        store = std::make_unique<PersistenceController>(root + QStringLiteral("/Kelvara.sqlite"));
        ASSERT_FALSE(store->loadError().has_value());
        context = store->viewContext();
        plugins = std::make_unique<PluginController>(BookmarkController::shared(), LogController::shared());
        router = std::make_unique<MCPServer>(LogController::shared(), &bridge, plugins.get());
        exportRoot = root + QStringLiteral("/Preferences");
        controller = std::make_unique<ConfigurationController>(context, router.get(), exportRoot,
                                                               AppPaths::builtinConfigurationDir());
    }

    void TearDown() override
    {
        controller.reset();
        store.reset();
    }

    // A tool with the given schemas; each schema is a list of (name, type, itemType, items).
    using Param = ConfigTestParam;
    ToolsConfig *addTool(const QString &name, const QList<QList<Param>> &inputs = {},
                         const QList<QList<Param>> &outputs = {}, const QStringList &requiredPerInput = {})
    {
        auto *tool = context->insert<ToolsConfig>();
        tool->setId(QUuid::createUuid());
        tool->setName(name);
        tool->setToolDescription(QStringLiteral("About ") + name);
        tool->setToolType(QStringLiteral("BuiltinTool"));
        tool->setMethodName(QStringLiteral("readFile"));
        tool->setHandlerName(QStringLiteral("FileAccessHandler"));
        for (qsizetype i = 0; i < inputs.size(); ++i) {
            auto *schema = context->insert<ToolInputSchema>();
            schema->setType(QStringLiteral("object"));
            schema->setRequiredParams(requiredPerInput.value(i));
            tool->addInputSchemasObject(schema);
            for (const Param &p : inputs[i]) {
                auto *param = context->insert<ToolInSchemaParams>();
                fill(param, p);
                schema->addPropertiesObject(param);
            }
        }
        for (const QList<Param> &params : outputs) {
            auto *schema = context->insert<ToolOutputSchema>();
            schema->setType(QStringLiteral("object"));
            tool->addOutputSchmasObject(schema);
            for (const Param &p : params) {
                auto *param = context->insert<ToolOutSchemeParams>();
                fill(param, p);
                schema->addPropertiesObject(param);
            }
        }
        return tool;
    }

    ResourceConfig *addResource(const std::optional<QString> &name, const QString &uri, const QString &type)
    {
        auto *resource = context->insert<ResourceConfig>();
        resource->setId(QUuid::createUuid());
        resource->setName(name);
        resource->setUri(QUrl(uri));
        resource->setType(type);
        resource->setMimeType(QStringLiteral("text/plain"));
        resource->setResourceDescription(QStringLiteral("A resource"));
        resource->setContextTags(QStringLiteral("a,b"));
        resource->setAnnAudience(QStringLiteral("user, assistant ,"));
        resource->setAnnPriority(0.25);
        return resource;
    }

    PromptConfig *addPrompt(const std::optional<QString> &name)
    {
        auto *prompt = context->insert<PromptConfig>();
        prompt->setId(QUuid::createUuid());
        prompt->setName(name);
        prompt->setPromptDescription(QStringLiteral("Greets"));
        prompt->setTemplateText(QStringLiteral("Hello {who}"));
        for (const char *argumentName : {"who", "How"}) {
            auto *argument = context->insert<PromptArguments>();
            argument->setName(QString::fromLatin1(argumentName));
            argument->setInfo(QStringLiteral("about ") + QString::fromLatin1(argumentName));
            argument->setRequired(argumentName == std::string("who"));
            prompt->addArgumentsObject(argument);
        }
        return prompt;
    }

    void save()
    {
        const Result<void> saved = context->save();
        ASSERT_TRUE(saved.ok()) << saved.error().description.toStdString();
    }

    ExportResult exportOrFail()
    {
        const Result<ExportResult> result = controller->exportConfiguration();
        EXPECT_TRUE(result.ok()) << (result ? QString() : result.error().description).toStdString();
        return result.valueOr(ExportResult());
    }

    QString bundleFile(const QString &folder, const QString &file) const
    {
        return exportRoot + QLatin1Char('/') + folder + QLatin1Char('/') + file;
    }

    static QJsonObject readJson(const QString &path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    static QStringList entries(const QString &folder)
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    }

    static void writeFile(const QString &path, const QByteArray &data)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    QString root;
    QString exportRoot;
    std::unique_ptr<PersistenceController> store;
    StoreContext *context = nullptr;
    std::unique_ptr<PluginController> plugins;
    MCPServerBridge bridge;
    std::unique_ptr<MCPServer> router;
    std::unique_ptr<ConfigurationController> controller;
    LogLines log;

private:
    template <class P>
    static void fill(P *param, const Param &p)
    {
        param->setId(QUuid::createUuid());
        param->setParameterName(p.name);
        param->setParameterType(p.type);
        param->setParameterDescription(p.description);
        param->setDefaultValue(p.defaultValue);
        param->setItemType(p.itemType);
        param->setItems(p.items);
    }
};
