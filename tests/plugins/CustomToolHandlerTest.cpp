#include "tests/plugins/PluginTestSupport.h"
#include "tests/support/SystemLogCapture.h"
#include "tools/plugins/CustomToolHandler.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QJsonObject>

#include <thread>

using namespace Qt::StringLiterals;
using PluginTestSupport::fixture;

namespace {

// The fixture's answer to a call, as an object (empty when there was none).
QJsonObject answer(const CustomToolHandler &handler, const QString &sid, const QString &json = u"{}"_s)
{
    const std::optional<QString> text = handler.callToolWithSID(sid, u"Fixture"_s, json);
    return text ? QJsonDocument::fromJson(text->toUtf8()).object() : QJsonObject();
}

// An error cell that still shows whether the loader touched it.
AppError untouchedError()
{
    return AppError{u"untouched"_s, -999, QString()};
}

const QString kNullPointer = u"Invalid tool descriptor. NULL pointer."_s;

}  // namespace

TEST(CustomToolHandler, LoadsALibraryCopiesItsDescriptorAndCallsItsEntry)
{
    CustomToolHandler handler;
    AppError error = untouchedError();
    const QString path = fixture(u"fixture_good.so"_s);
    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary, &error));
    EXPECT_EQ(error.code, -999);
    EXPECT_NE(handler.pluginHandle(), nullptr);
    EXPECT_NE(handler.toolEntryFunc(), nullptr);

    const std::optional<ToolDescriptor> d = handler.getToolDescriptor();
    ASSERT_TRUE(d.has_value());
    EXPECT_EQ(d->abiVersion, 3);
    EXPECT_EQ(d->toolVersion, 7);
    EXPECT_EQ(d->pluginType, 1);
    EXPECT_EQ((QStringList{d->name, d->version, d->author, d->toolDescription, d->toolEntryPoint, d->toolIdentifier,
                           d->capabilitiesJSON, d->fullPathName}),
              (QStringList{"Fixture", "1.2.3", "Test Suite", u"A plug-in for the loader's tests \u2713"_s, "fixtureEntry",
                           "org.tamsel.kelvara.test.fixture", R"({"echo":true})", path}));

    // The three texts reach the plug-in as UTF-8, both out cells start at zero.
    EXPECT_EQ(answer(handler, u"sid-1"_s, u"{\"text\":\"gr\u00fc\u00dfe \u20ac\"}"_s),
              (QJsonObject{{"sid", "sid-1"}, {"tool", "Fixture"}, {"cellsZero", true}, {"together", false},
                           {"input", QJsonObject{{"text", u"gr\u00fc\u00dfe \u20ac"_s}}}}));
    const std::optional<QString> invoked = handler.invokeSID(u"sid-2"_s, u"Fixture"_s, u"{}"_s);
    EXPECT_EQ(QJsonDocument::fromJson(invoked.value_or(QString()).toUtf8())["sid"].toString(), "sid-2");
}

TEST(CustomToolHandler, UnloadingALibraryLeavesADeadHandlerUntilTheNextLoad)
{
    CustomToolHandler handler;
    const QString path = fixture(u"fixture_good.so"_s);
    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary));
    handler.unloadPlugin();
    EXPECT_EQ(handler.pluginHandle(), nullptr);
    EXPECT_TRUE(answer(handler, u"s"_s).isEmpty());
    EXPECT_TRUE(handler.getToolDescriptor().has_value());  // still found by name

    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary));
    EXPECT_EQ(answer(handler, u"s"_s)["sid"].toString(), "s");
}

TEST(CustomToolHandler, LoadsBothBundleFormsAndKeepsThemLoaded)
{
    for (const QString &name : {u"fixture_good.bundle"_s, u"fixture_good.plugin"_s}) {
        SCOPED_TRACE(name.toStdString());
        CustomToolHandler handler;
        AppError error = untouchedError();
        ASSERT_TRUE(handler.loadToolAtPath(fixture(name), CustomToolHandler::pluginTypeForPath(name), &error));
        EXPECT_EQ(error.code, -999);
        EXPECT_EQ(handler.pluginHandle(), nullptr);
        ASSERT_TRUE(handler.getToolDescriptor().has_value());
        EXPECT_EQ(handler.getToolDescriptor()->pluginType, 2);  // ".plugin" too
        EXPECT_EQ(handler.getToolDescriptor()->fullPathName, fixture(name));

        // A bundle has no handle to close: it goes on working.
        handler.unloadPlugin();
        EXPECT_EQ(answer(handler, u"b"_s, u"[1]"_s)["sid"].toString(), "b");
    }
}

// dlsym on a handle also searches the plug-in's dependencies; only the plug-in's own file counts.
TEST(CustomToolHandler, FailedLoadsSayWhyInTheCellAndKeepNothing)
{
    const QString dir = TestSupport::makeTempDir();
    ASSERT_TRUE(QDir().mkpath(dir + u"/folder.so/Contents/Linux"_s));
    ASSERT_TRUE(QFile::copy(fixture(u"fixture_good.so"_s), dir + u"/file.bundle"_s));
    ASSERT_TRUE(QDir().mkpath(dir + u"/empty.plugin/Contents/Linux"_s));
    struct Case {
        QString file;
        int type;
        int code;  // -999: the cell is left untouched
        QString description;
        bool whole = true;  // else a part of the loader's text
    };
    const QString invalidType = u"Invalid plugin type"_s;
    const QString missing = u"Can't find tool decriptor function"_s;
    const Case cases[] = {
        {"fixture_good.so", 0, 6, invalidType},
        {"fixture_good.so", 4, 6, invalidType},
        {"fixture_good.so", -1, 6, invalidType},
        // Another interface version fails without cause in a library, with 24 in a bundle.
        {"fixture_abi2.so", 1, -999, QString()},
        {"fixture_abi4.so", 1, -999, QString()},
        {"fixture_abi2.bundle", 2, 24, kNullPointer},
        {"fixture_abi2.plugin", 3, 24, kNullPointer},
        {"fixture_abi4.bundle", 2, 24, kNullPointer},
        {"fixture_abi4.plugin", 3, 24, kNullPointer},
        // toolEntryPoint "missingEntry" is nowhere, "puts" lives in libc, the null texts give "".
        {"fixture_no_entry.so", 1, 6, u"missingEntry"_s, false},
        {"fixture_foreign_entry.so", 1, 6, u"puts"_s, false},
        {"fixture_null_texts.so", 1, 6, QString(), false},
        {"fixture_no_describe.so", 1, 13, missing},
        // toolDescribe only in libfixture_dependency.so, which the plug-in links
        {"fixture_dependency_describe.so", 1, 13, missing},
        {"fixture_no_describe.bundle", 2, 3, u"Failed to load bundle toolDescribe function"_s},
        {"fixture_null_descriptor.so", 1, 14, kNullPointer},
        {"fixture_null_descriptor.plugin", 3, 14, kNullPointer},
        // Each form fails at the loader of its ending: a directory named like a library goes to
        // dlopen, a library file named like a bundle is no bundle, a bundle may lack its executable.
        {dir + u"/folder.so"_s, 1, 1, QString(), false},
        {dir + u"/absent.so"_s, 1, 1, u"absent.so"_s, false},
        {dir + u"/file.bundle"_s, 2, 2, u"Failed to create CFBundle"_s},
        {dir + u"/empty.plugin"_s, 3, 3, u"Failed to load bundle executable"_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.file.toStdString() + " as " + std::to_string(c.type));
        CustomToolHandler handler;
        AppError error = untouchedError();
        EXPECT_FALSE(handler.loadToolAtPath(c.file.startsWith(u'/') ? c.file : fixture(c.file), c.type, &error));
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.domain, c.code == -999 ? u"untouched"_s : u"CustomToolHandler"_s);
        if (c.whole)
            EXPECT_EQ(error.description, c.description);
        else
            EXPECT_TRUE(!error.description.isEmpty() && error.description.contains(c.description)) << error.description;
        EXPECT_FALSE(handler.getToolDescriptor().has_value());
        EXPECT_EQ(handler.pluginHandle(), nullptr);
        EXPECT_EQ(handler.toolEntryFunc(), nullptr);
    }
}

// A bundle's entry is looked up without a check: a missing one leaves a handler that calls nothing.
TEST(CustomToolHandler, BundlesLoadWithoutAnEntryAndByTheirExecutablesName)
{
    for (const QString &name : {u"fixture_no_entry.bundle"_s, u"fixture_foreign_entry.bundle"_s, u"fixture_null_texts.bundle"_s}) {
        SCOPED_TRACE(name.toStdString());
        CustomToolHandler bundle;
        ASSERT_TRUE(bundle.loadToolAtPath(fixture(name), 2));
        EXPECT_EQ(bundle.toolEntryFunc(), nullptr);
        EXPECT_TRUE(answer(bundle, u"s"_s).isEmpty());
    }
    CustomToolHandler nullTexts;
    ASSERT_TRUE(nullTexts.loadToolAtPath(fixture(u"fixture_null_texts.bundle"_s), 2));
    const ToolDescriptor d = *nullTexts.getToolDescriptor();
    EXPECT_EQ(d.abiVersion, 3);
    EXPECT_EQ(QStringList({d.name, d.version, d.author, d.toolDescription, d.toolEntryPoint, d.toolIdentifier,
                           d.capabilitiesJSON}).join(QString()), QString());
    EXPECT_FALSE(nullTexts.callToolWithSID(u"s"_s, QString(), u"{}"_s).has_value());

    // A symbolic link to a library plug-in still names the plug-in's own file.
    const QString dir = TestSupport::makeTempDir();
    ASSERT_TRUE(QFile::link(fixture(u"fixture_good.so"_s), dir + u"/linked.so"_s));
    CustomToolHandler linked;
    EXPECT_TRUE(linked.loadToolAtPath(dir + u"/linked.so"_s, 1));
    EXPECT_EQ(linked.getToolDescriptor()->fullPathName, dir + u"/linked.so"_s);

    // A bundle's executable is named after it without its ending, dots and all; a trailing
    // slash on the bundle's path is fine.
    ASSERT_TRUE(QDir().mkpath(dir + u"/my.tool.bundle/Contents/Linux"_s));
    ASSERT_TRUE(QFile::copy(fixture(u"fixture_good.so"_s), dir + u"/my.tool.bundle/Contents/Linux/my.tool.so"_s));
    CustomToolHandler dotted;
    AppError error;
    EXPECT_TRUE(dotted.loadToolAtPath(dir + u"/my.tool.bundle/"_s, 2, &error)) << error.description;
}

TEST(CustomToolHandler, ResultsAreTakenByTheirNulAndMustBeUtf8)
{
    SystemLogCapture log;
    CustomToolHandler noLength;
    ASSERT_TRUE(noLength.loadToolAtPath(fixture(u"fixture_no_length.so"_s), 1));
    const std::optional<QString> text = noLength.callToolWithSID(u"n"_s, u"Fixture"_s, u"{}"_s);
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(QJsonDocument::fromJson(text->toUtf8())["sid"].toString(), "n");
    EXPECT_TRUE(log.contains(u"[CustomToolHandler::callToolWithSID] result: 0 bytes\n"_s + *text));

    CustomToolHandler badUtf8;
    ASSERT_TRUE(badUtf8.loadToolAtPath(fixture(u"fixture_bad_utf8.so"_s), 1));
    EXPECT_FALSE(badUtf8.callToolWithSID(u"n"_s, u"Fixture"_s, u"{}"_s).has_value());
}

TEST(CustomToolHandler, TwoCallsOfOnePluginRunAtTheSameTime)
{
    // Each call has its own handler over the same image; the plug-in waits until both are inside.
    CustomToolHandler first;
    CustomToolHandler second;
    ASSERT_TRUE(first.loadToolAtPath(fixture(u"fixture_concurrent.so"_s), 1));
    ASSERT_TRUE(second.loadToolAtPath(fixture(u"fixture_concurrent.so"_s), 1));
    QJsonObject a;
    QJsonObject b;
    std::thread one([&] { a = answer(first, u"one"_s, u"{\"n\":1}"_s); });
    std::thread two([&] { b = answer(second, u"two"_s, u"{\"n\":2}"_s); });
    one.join();
    two.join();
    auto expected = [](const char *sid, int n) {
        return QJsonObject{{"sid", sid}, {"tool", "Fixture"}, {"cellsZero", true}, {"together", true}, {"input", QJsonObject{{"n", n}}}};
    };
    EXPECT_EQ(a, expected("one", 1));
    EXPECT_EQ(b, expected("two", 2));
}

TEST(CustomToolHandler, LogsTheFullErrorWithACellAndTheShortCauseWithout)
{
    SystemLogCapture log;
    const QString path = fixture(u"fixture_no_describe.so"_s);
    CustomToolHandler handler;
    AppError error;
    EXPECT_FALSE(handler.loadToolAtPath(path, 1, &error));
    EXPECT_FALSE(handler.loadToolAtPath(path, 1));
    EXPECT_FALSE(handler.loadToolAtPath(path, 0));
    CustomToolHandler bundle;
    EXPECT_FALSE(bundle.loadToolAtPath(fixture(u"fixture_abi4.bundle"_s), 2));

    for (const QString &line : {u"[CustomToolHandler::loadToolAtPath] type=1 path="_s + path,
                                u"[CustomToolHandler::loadDynamicLibrary] path="_s + path,
                                u"[CustomToolHandler::negotiateToolABI]"_s,
                                u"[CustomToolHandler::negotiateToolABI] error=Error Domain=CustomToolHandler Code=13 "
                                "\"Can't find tool decriptor function\""_s,
                                u"[CustomToolHandler::negotiateToolABI] Missing function: toolDescribe."_s,
                                u"[CustomToolHandler::loadToolAtPath] Invalid plugin type"_s,
                                u"[CustomToolHandler::loadBundle] Invalid NULL descriptor."_s})
        EXPECT_TRUE(log.contains(line)) << line;
}

TEST(CustomToolHandler, TellsTheFormByTheEndingAndANullDescriptorGivesAnEmptyRecord)
{
    const std::pair<const char *, int> endings[] = {
        {"/p/Tool.so", 1}, {"/p/Tool.bundle/", 2}, {"Tool.plugin", 3}, {"Tool.so.txt", 0}, {"Tool.dylib", 0}};
    for (const auto &[path, type] : endings)
        EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QString::fromLatin1(path)), type) << path;
    EXPECT_EQ(ToolDescriptor::toolDescriptorWithCDescriptor(nullptr, 1, u"/x.so"_s), ToolDescriptor());
}

// A plug-in whose library needs another that is gone, or a symbol nothing provides: the
// message names what is missing, not the plug-in's own file. Built here with the system's
// compiler, since the build's own fixtures always find their libraries.
TEST(CustomToolHandler, AMissingDependencyOrSymbolIsNamed)
{
    const QString dir = TestSupport::makeTempDir(QStringLiteral("deps"));
    const QString sdk = QStringLiteral(KELVARA_SOURCE_RESOURCES "/ToolSDK/include");
    auto compile = [&](const QStringList &arguments) {
        QProcess cc;
        cc.setWorkingDirectory(dir);
        cc.start(QStringLiteral("cc"), arguments);
        return cc.waitForFinished(60000) && cc.exitCode() == 0;
    };
    QFile source(dir + QStringLiteral("/plug.c"));
    ASSERT_TRUE(source.open(QIODevice::WriteOnly));
    source.write("#include \"KelvaraToolSDK.h\"\n"
                 "int gone(void);\n"
                 "static KelvaraToolDescriptor d = {KELVARA_TOOL_ABI_VERSION, 1, \"plug\", \"1\", \"a\", \"d\", \"e\", \"i\", \"{}\"};\n"
                 "__attribute__((visibility(\"default\"))) const KelvaraToolDescriptor *toolDescribe(void) { return &d; }\n"
                 "__attribute__((visibility(\"default\"))) int e(void) { return gone(); }\n");
    source.close();
    QFile dependency(dir + QStringLiteral("/gone.c"));
    ASSERT_TRUE(dependency.open(QIODevice::WriteOnly));
    dependency.write("int gone(void) { return 1; }\n");
    dependency.close();
    ASSERT_TRUE(compile({"-shared", "-fPIC", "-o", "libgone.so", "gone.c"}));
    ASSERT_TRUE(compile({"-shared", "-fPIC", "-fvisibility=hidden", "-I" + sdk, "-o", "needs.so", "plug.c", "-L.", "-lgone"}));
    ASSERT_TRUE(compile({"-shared", "-fPIC", "-fvisibility=hidden", "-I" + sdk, "-o", "lacks.so", "plug.c", "-Wl,-z,now"}));
    QFile::remove(dir + QStringLiteral("/libgone.so"));

    CustomToolHandler needs;
    AppError error;
    EXPECT_FALSE(needs.loadToolAtPath(dir + QStringLiteral("/needs.so"), CustomToolHandler::DynamicLibrary, &error));
    EXPECT_EQ(error.description, "needs.so needs the library libgone.so, which cannot be loaded: No such file or directory");
    CustomToolHandler lacks;
    EXPECT_FALSE(lacks.loadToolAtPath(dir + QStringLiteral("/lacks.so"), CustomToolHandler::DynamicLibrary, &error));
    EXPECT_TRUE(error.description.startsWith("lacks.so needs the symbol gone, which none of the libraries it loads provides"))
        << error.description.toStdString();
}
