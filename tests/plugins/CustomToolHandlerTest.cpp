#include "tests/plugins/SystemLogCapture.h"
#include "tests/support/TestSupport.h"
#include "tools/plugins/CustomToolHandler.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <optional>
#include <thread>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

QString fixture(const QString &name)
{
    return QStringLiteral(KELVARA_TEST_PLUGIN_DIR "/") + name;
}

QJsonObject parseObject(const std::optional<QString> &text)
{
    if (!text)
        return {};
    return QJsonDocument::fromJson(text->toUtf8()).object();
}

// An error cell that still shows whether the loader touched it.
AppError untouchedError()
{
    return AppError{QStringLiteral("untouched"), -999, QString()};
}

const QString kNullPointer = QStringLiteral("Invalid tool descriptor. NULL pointer.");

}  // namespace

TEST(CustomToolHandler, LoadsALibraryCopiesItsDescriptorAndCallsItsEntry)
{
    CustomToolHandler handler;
    AppError error = untouchedError();
    const QString path = fixture(QStringLiteral("fixture_good.so"));
    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary, &error));
    EXPECT_EQ(error.code, -999);
    EXPECT_NE(handler.pluginHandle(), nullptr);
    EXPECT_NE(handler.toolEntryFunc(), nullptr);

    const std::optional<ToolDescriptor> descriptor = handler.getToolDescriptor();
    ASSERT_TRUE(descriptor.has_value());
    EXPECT_EQ(descriptor->abiVersion, 3);
    EXPECT_EQ(descriptor->toolVersion, 7);
    EXPECT_EQ(descriptor->name, QStringLiteral("Fixture"));
    EXPECT_EQ(descriptor->version, QStringLiteral("1.2.3"));
    EXPECT_EQ(descriptor->author, QStringLiteral("Test Suite"));
    EXPECT_EQ(descriptor->toolDescription, QStringLiteral("A plug-in for the loader's tests \u2713"));
    EXPECT_EQ(descriptor->toolEntryPoint, QStringLiteral("fixtureEntry"));
    EXPECT_EQ(descriptor->toolIdentifier, QStringLiteral("org.tamsel.kelvara.test.fixture"));
    EXPECT_EQ(descriptor->capabilitiesJSON, QStringLiteral("{\"echo\":true}"));
    EXPECT_EQ(descriptor->fullPathName, path);
    EXPECT_EQ(descriptor->pluginType, 1);

    // The three texts reach the plug-in as UTF-8, both out cells start at zero.
    const QJsonObject answer = parseObject(handler.callToolWithSID(QStringLiteral("sid-1"), QStringLiteral("Fixture"),
                                                                   QStringLiteral("{\"text\":\"gr\u00fc\u00dfe \u20ac\"}")));
    EXPECT_EQ(answer.value(QStringLiteral("sid")).toString(), QStringLiteral("sid-1"));
    EXPECT_EQ(answer.value(QStringLiteral("tool")).toString(), QStringLiteral("Fixture"));
    EXPECT_TRUE(answer.value(QStringLiteral("cellsZero")).toBool());
    EXPECT_EQ(answer.value(QStringLiteral("input")).toObject().value(QStringLiteral("text")).toString(),
              QStringLiteral("gr\u00fc\u00dfe \u20ac"));
    EXPECT_EQ(parseObject(handler.invokeSID(QStringLiteral("sid-2"), QStringLiteral("Fixture"), QStringLiteral("{}")))
                  .value(QStringLiteral("sid")).toString(),
              QStringLiteral("sid-2"));
}

TEST(CustomToolHandler, UnloadingALibraryLeavesADeadHandlerUntilTheNextLoad)
{
    CustomToolHandler handler;
    const QString path = fixture(QStringLiteral("fixture_good.so"));
    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary));
    handler.unloadPlugin();
    EXPECT_EQ(handler.pluginHandle(), nullptr);
    EXPECT_FALSE(handler.callToolWithSID(QStringLiteral("s"), QStringLiteral("Fixture"), QStringLiteral("{}")).has_value());
    EXPECT_TRUE(handler.getToolDescriptor().has_value());  // still found by name

    ASSERT_TRUE(handler.loadToolAtPath(path, CustomToolHandler::DynamicLibrary));
    EXPECT_TRUE(handler.callToolWithSID(QStringLiteral("s"), QStringLiteral("Fixture"), QStringLiteral("{}")).has_value());
}

TEST(CustomToolHandler, LoadsBothBundleFormsAndKeepsThemLoaded)
{
    for (const QString &name : {QStringLiteral("fixture_good.bundle"), QStringLiteral("fixture_good.plugin")}) {
        SCOPED_TRACE(name.toStdString());
        const int type = CustomToolHandler::pluginTypeForPath(name);
        CustomToolHandler handler;
        AppError error = untouchedError();
        ASSERT_TRUE(handler.loadToolAtPath(fixture(name), type, &error));
        EXPECT_EQ(error.code, -999);
        EXPECT_EQ(handler.pluginHandle(), nullptr);
        ASSERT_TRUE(handler.getToolDescriptor().has_value());
        EXPECT_EQ(handler.getToolDescriptor()->pluginType, 2);  // ".plugin" too
        EXPECT_EQ(handler.getToolDescriptor()->fullPathName, fixture(name));

        // A bundle has no handle to close: it goes on working.
        handler.unloadPlugin();
        EXPECT_EQ(parseObject(handler.callToolWithSID(QStringLiteral("b"), QStringLiteral("Fixture"), QStringLiteral("[1]")))
                      .value(QStringLiteral("sid")).toString(),
                  QStringLiteral("b"));
    }
}

TEST(CustomToolHandler, RefusesPluginTypesOutsideOneToThree)
{
    for (int type : {0, 4, -1}) {
        SCOPED_TRACE(type);
        CustomToolHandler handler;
        AppError error;
        EXPECT_FALSE(handler.loadToolAtPath(fixture(QStringLiteral("fixture_good.so")), type, &error));
        EXPECT_EQ(error.domain, QStringLiteral("CustomToolHandler"));
        EXPECT_EQ(error.code, 6);
        EXPECT_EQ(error.description, QStringLiteral("Invalid plugin type"));
        EXPECT_FALSE(handler.getToolDescriptor().has_value());
    }
}

TEST(CustomToolHandler, NullTextsLoadAsEmptyUpToTheEntryLookup)
{
    CustomToolHandler library;
    AppError error;
    EXPECT_FALSE(library.loadToolAtPath(fixture(QStringLiteral("fixture_null_texts.so")), 1, &error));
    EXPECT_EQ(error.code, 6);  // the empty symbol name
    EXPECT_FALSE(error.description.isEmpty());
    EXPECT_EQ(library.pluginHandle(), nullptr);
    EXPECT_FALSE(library.getToolDescriptor().has_value());

    CustomToolHandler bundle;
    ASSERT_TRUE(bundle.loadToolAtPath(fixture(QStringLiteral("fixture_null_texts.bundle")), 2, &error));
    const ToolDescriptor descriptor = *bundle.getToolDescriptor();
    EXPECT_EQ(descriptor.abiVersion, 3);
    for (const QString &text : {descriptor.name, descriptor.version, descriptor.author, descriptor.toolDescription,
                                descriptor.toolEntryPoint, descriptor.toolIdentifier, descriptor.capabilitiesJSON})
        EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(bundle.toolEntryFunc(), nullptr);
    EXPECT_FALSE(bundle.callToolWithSID(QStringLiteral("s"), QString(), QStringLiteral("{}")).has_value());
}

TEST(CustomToolHandler, OtherAbiVersionsFailWithoutCauseInALibraryAndWithCode24InABundle)
{
    for (const QString &name : {QStringLiteral("fixture_abi2"), QStringLiteral("fixture_abi4")}) {
        SCOPED_TRACE(name.toStdString());
        CustomToolHandler library;
        AppError error = untouchedError();
        EXPECT_FALSE(library.loadToolAtPath(fixture(name + QStringLiteral(".so")), 1, &error));
        EXPECT_EQ(error.code, -999);
        EXPECT_EQ(library.pluginHandle(), nullptr);
        EXPECT_FALSE(library.getToolDescriptor().has_value());

        for (const QString &form : {QStringLiteral(".bundle"), QStringLiteral(".plugin")}) {
            CustomToolHandler bundle;
            EXPECT_FALSE(bundle.loadToolAtPath(fixture(name + form), CustomToolHandler::pluginTypeForPath(form), &error));
            EXPECT_EQ(error.code, 24);
            EXPECT_EQ(error.description, kNullPointer);
            EXPECT_EQ(bundle.toolEntryFunc(), nullptr);
        }
    }
}

TEST(CustomToolHandler, MissingEntrySymbolFailsALibraryButNotABundle)
{
    CustomToolHandler library;
    AppError error;
    EXPECT_FALSE(library.loadToolAtPath(fixture(QStringLiteral("fixture_no_entry.so")), 1, &error));
    EXPECT_EQ(error.code, 6);
    EXPECT_TRUE(error.description.contains(QStringLiteral("missingEntry"))) << error.description.toStdString();

    CustomToolHandler bundle;
    ASSERT_TRUE(bundle.loadToolAtPath(fixture(QStringLiteral("fixture_no_entry.bundle")), 2, &error));
    EXPECT_EQ(bundle.toolEntryFunc(), nullptr);
    EXPECT_FALSE(bundle.callToolWithSID(QStringLiteral("s"), QStringLiteral("Fixture"), QStringLiteral("{}")).has_value());
}

TEST(CustomToolHandler, MissingOrNullDescriptorFunction)
{
    struct Case {
        const char *file;
        int type;
        int code;
        QString description;
    };
    const Case cases[] = {
        {"fixture_no_describe.so", 1, 13, QStringLiteral("Can't find tool decriptor function")},
        {"fixture_no_describe.bundle", 2, 3, QStringLiteral("Failed to load bundle toolDescribe function")},
        {"fixture_null_descriptor.so", 1, 14, kNullPointer},
        {"fixture_null_descriptor.plugin", 3, 14, kNullPointer},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.file);
        CustomToolHandler handler;
        AppError error;
        EXPECT_FALSE(handler.loadToolAtPath(fixture(QLatin1String(c.file)), c.type, &error));
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.description, c.description);
        EXPECT_FALSE(handler.getToolDescriptor().has_value());
    }
}

// dlsym on a handle also searches the plug-in's dependencies; only the plug-in's own file counts.
TEST(CustomToolHandler, SymbolsDefinedOnlyInOtherLibrariesCountAsMissing)
{
    CustomToolHandler foreignEntry;  // toolEntryPoint "puts" lives in libc
    AppError error;
    EXPECT_FALSE(foreignEntry.loadToolAtPath(fixture(QStringLiteral("fixture_foreign_entry.so")), 1, &error));
    EXPECT_EQ(error.code, 6);
    EXPECT_TRUE(error.description.contains(QStringLiteral("puts"))) << error.description.toStdString();

    CustomToolHandler foreignBundle;
    ASSERT_TRUE(foreignBundle.loadToolAtPath(fixture(QStringLiteral("fixture_foreign_entry.bundle")), 2, &error));
    EXPECT_EQ(foreignBundle.toolEntryFunc(), nullptr);

    CustomToolHandler dependencyDescribe;  // toolDescribe only in libfixture_dependency.so
    EXPECT_FALSE(dependencyDescribe.loadToolAtPath(fixture(QStringLiteral("fixture_dependency_describe.so")), 1, &error));
    EXPECT_EQ(error.code, 13);

    // A symbolic link to the plug-in still names the plug-in's own file.
    const QString link = TestSupport::makeTempDir() + QStringLiteral("/linked.so");
    ASSERT_TRUE(QFile::link(fixture(QStringLiteral("fixture_good.so")), link));
    CustomToolHandler linked;
    EXPECT_TRUE(linked.loadToolAtPath(link, 1, &error));
    EXPECT_EQ(linked.getToolDescriptor()->fullPathName, link);
}

TEST(CustomToolHandler, AFormFailsAtTheLoaderOfItsEnding)
{
    const QString dir = TestSupport::makeTempDir();
    AppError error;

    // A directory named like a library goes to dlopen and fails there.
    ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/folder.so/Contents/Linux")));
    CustomToolHandler directoryAsLibrary;
    EXPECT_FALSE(directoryAsLibrary.loadToolAtPath(dir + QStringLiteral("/folder.so"), 1, &error));
    EXPECT_EQ(error.code, 1);
    EXPECT_FALSE(error.description.isEmpty());

    // A library file named like a bundle is no bundle.
    ASSERT_TRUE(QFile::copy(fixture(QStringLiteral("fixture_good.so")), dir + QStringLiteral("/file.bundle")));
    CustomToolHandler fileAsBundle;
    EXPECT_FALSE(fileAsBundle.loadToolAtPath(dir + QStringLiteral("/file.bundle"), 2, &error));
    EXPECT_EQ(error.code, 2);
    EXPECT_EQ(error.description, QStringLiteral("Failed to create CFBundle"));

    // A bundle directory without its executable.
    ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/empty.plugin/Contents/Linux")));
    CustomToolHandler emptyBundle;
    EXPECT_FALSE(emptyBundle.loadToolAtPath(dir + QStringLiteral("/empty.plugin"), 3, &error));
    EXPECT_EQ(error.code, 3);
    EXPECT_EQ(error.description, QStringLiteral("Failed to load bundle executable"));

    CustomToolHandler missing;
    EXPECT_FALSE(missing.loadToolAtPath(dir + QStringLiteral("/absent.so"), 1, &error));
    EXPECT_EQ(error.code, 1);
    EXPECT_TRUE(error.description.contains(QStringLiteral("absent.so"))) << error.description.toStdString();

    // The executable is named after the bundle without its ending, dots and all; a
    // trailing slash on the bundle's path is fine.
    ASSERT_TRUE(QDir().mkpath(dir + QStringLiteral("/my.tool.bundle/Contents/Linux")));
    ASSERT_TRUE(QFile::copy(fixture(QStringLiteral("fixture_good.so")), dir + QStringLiteral("/my.tool.bundle/Contents/Linux/my.tool.so")));
    CustomToolHandler dotted;
    EXPECT_TRUE(dotted.loadToolAtPath(dir + QStringLiteral("/my.tool.bundle/"), 2, &error)) << error.description.toStdString();
}

TEST(CustomToolHandler, ResultsAreTakenByTheirNulAndMustBeUtf8)
{
    SystemLogCapture log;
    CustomToolHandler noLength;
    ASSERT_TRUE(noLength.loadToolAtPath(fixture(QStringLiteral("fixture_no_length.so")), 1));
    const std::optional<QString> text = noLength.callToolWithSID(QStringLiteral("n"), QStringLiteral("Fixture"), QStringLiteral("{}"));
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(parseObject(text).value(QStringLiteral("sid")).toString(), QStringLiteral("n"));
    EXPECT_TRUE(log.contains(QStringLiteral("[CustomToolHandler::callToolWithSID] result: 0 bytes\n") + *text));

    CustomToolHandler nothing;
    ASSERT_TRUE(nothing.loadToolAtPath(fixture(QStringLiteral("fixture_nothing.bundle")), 2));
    EXPECT_FALSE(nothing.callToolWithSID(QStringLiteral("n"), QStringLiteral("Fixture"), QStringLiteral("{}")).has_value());

    CustomToolHandler badUtf8;
    ASSERT_TRUE(badUtf8.loadToolAtPath(fixture(QStringLiteral("fixture_bad_utf8.so")), 1));
    EXPECT_FALSE(badUtf8.callToolWithSID(QStringLiteral("n"), QStringLiteral("Fixture"), QStringLiteral("{}")).has_value());
}

TEST(CustomToolHandler, TwoCallsOfOnePluginRunAtTheSameTime)
{
    // Each call has its own handler over the same image; the plug-in waits until both are inside.
    CustomToolHandler first;
    CustomToolHandler second;
    ASSERT_TRUE(first.loadToolAtPath(fixture(QStringLiteral("fixture_concurrent.so")), 1));
    ASSERT_TRUE(second.loadToolAtPath(fixture(QStringLiteral("fixture_concurrent.so")), 1));
    std::optional<QString> a;
    std::optional<QString> b;
    std::thread one([&] { a = first.callToolWithSID(QStringLiteral("one"), QStringLiteral("Fixture"), QStringLiteral("{\"n\":1}")); });
    std::thread two([&] { b = second.callToolWithSID(QStringLiteral("two"), QStringLiteral("Fixture"), QStringLiteral("{\"n\":2}")); });
    one.join();
    two.join();
    const QJsonObject resultA = parseObject(a);
    const QJsonObject resultB = parseObject(b);
    EXPECT_TRUE(resultA.value(QStringLiteral("together")).toBool());
    EXPECT_TRUE(resultB.value(QStringLiteral("together")).toBool());
    EXPECT_EQ(resultA.value(QStringLiteral("sid")).toString(), QStringLiteral("one"));
    EXPECT_EQ(resultB.value(QStringLiteral("sid")).toString(), QStringLiteral("two"));
    EXPECT_EQ(resultA.value(QStringLiteral("input")).toObject().value(QStringLiteral("n")).toInt(), 1);
    EXPECT_EQ(resultB.value(QStringLiteral("input")).toObject().value(QStringLiteral("n")).toInt(), 2);
}

TEST(CustomToolHandler, LogsTheFullErrorWithACellAndTheShortCauseWithout)
{
    SystemLogCapture log;
    const QString path = fixture(QStringLiteral("fixture_no_describe.so"));
    CustomToolHandler handler;
    AppError error;
    EXPECT_FALSE(handler.loadToolAtPath(path, 1, &error));
    EXPECT_FALSE(handler.loadToolAtPath(path, 1));
    EXPECT_FALSE(handler.loadToolAtPath(path, 0));

    const QStringList lines = log.captured();
    EXPECT_TRUE(lines.contains(QStringLiteral("[CustomToolHandler::loadToolAtPath] type=1 path=") + path));
    EXPECT_TRUE(lines.contains(QStringLiteral("[CustomToolHandler::loadDynamicLibrary] path=") + path));
    EXPECT_TRUE(lines.contains(QStringLiteral("[CustomToolHandler::negotiateToolABI]")));
    EXPECT_TRUE(lines.contains(QStringLiteral(
        "[CustomToolHandler::negotiateToolABI] error=Error Domain=CustomToolHandler Code=13 \"Can't find tool decriptor function\"")));
    EXPECT_TRUE(lines.contains(QStringLiteral("[CustomToolHandler::negotiateToolABI] Missing function: toolDescribe.")));
    EXPECT_TRUE(lines.contains(QStringLiteral("[CustomToolHandler::loadToolAtPath] Invalid plugin type")));

    CustomToolHandler bundle;
    EXPECT_FALSE(bundle.loadToolAtPath(fixture(QStringLiteral("fixture_abi4.bundle")), 2));
    EXPECT_TRUE(log.contains(QStringLiteral("[CustomToolHandler::loadBundle] Invalid NULL descriptor.")));
}

TEST(ToolDescriptor, NullDescriptorGivesEmptyRecord)
{
    const ToolDescriptor empty = ToolDescriptor::toolDescriptorWithCDescriptor(nullptr, 1, QStringLiteral("/x.so"));
    EXPECT_EQ(empty, ToolDescriptor());
}

TEST(CustomToolHandler, TellsTheFormByTheEnding)
{
    EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QStringLiteral("/p/Tool.so")), 1);
    EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QStringLiteral("/p/Tool.bundle/")), 2);
    EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QStringLiteral("Tool.plugin")), 3);
    EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QStringLiteral("Tool.so.txt")), 0);
    EXPECT_EQ(CustomToolHandler::pluginTypeForPath(QStringLiteral("Tool.dylib")), 0);
}
