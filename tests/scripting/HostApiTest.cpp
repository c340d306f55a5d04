#include "store/PersistenceController.h"
#include "store/PromptConfig.h"
#include "store/ResourceConfig.h"
#include "tests/http/TestHttpServer.h"
#include "tests/scripting/ScriptTestFixture.h"
#include "tools/scripting/ScriptBridge.h"
#include "tools/scripting/ScriptProcess.h"
#include "tools/security/BookmarkController.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <atomic>
#include <cstring>
#include <thread>

namespace {

class HostApiTest : public ScriptTestFixture {
protected:
    static void SetUpTestSuite()
    {
        // The HTTP client honours proxies from the environment; the test server is direct.
        qputenv("no_proxy", "127.0.0.1,localhost");
        qputenv("NO_PROXY", "127.0.0.1,localhost");
    }

    // Runs `body` (the inside of a function that returns an object) as a tool script and
    // gives back that object.
    QJsonObject observe(const QString &body)
    {
        const JSONToolResult result = run(QStringLiteral("function observe() {\n") + body
                                          + QStringLiteral("\n}\nfunction toolEntry() {\n"
                                                           "    return JSON.stringify({text: JSON.stringify(observe())});\n"
                                                           "}\n"));
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(text(result).toUtf8(), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << text(result).toStdString();
        return document.object();
    }

    // The one line logged with that code, or a line with an empty message.
    Line onlyLine(int code)
    {
        const QList<Line> found = linesWithCode(code);
        EXPECT_EQ(found.size(), 1) << "code " << code;
        return found.size() == 1 ? found.first() : Line{MCPLogMessageType::Critical, code, QString()};
    }

    QList<Line> linesStartingWith(const QString &prefix)
    {
        TestSupport::spin(20);
        QMutexLocker lock(&linesMutex);
        QList<Line> found;
        for (const Line &line : std::as_const(lines)) {
            if (line.message.startsWith(prefix))
                found.append(line);
        }
        return found;
    }

    static QString js(const QString &text)
    {
        return QString::fromUtf8(QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
    }

    static QStringList strings(const QJsonValue &value)
    {
        QStringList list;
        for (const QJsonValue &item : value.toArray())
            list.append(item.toString());
        return list;
    }
};

TEST_F(HostApiTest, FileMethodsWriteReadListCreateAndDelete)
{
    const QString dir = folder + QStringLiteral("/work");
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var dir = %1;
        var r = {};
        r.created = Kelvara.createDirectory(dir + '/a/b/c');
        r.createdAgain = Kelvara.createDirectory(dir + '/a/b/c');
        r.saved = Kelvara.saveFile(dir + '/a/note.txt', 'Grüße\nzwei');
        r.replaced = Kelvara.saveFile(dir + '/a/.hidden', 'old') && Kelvara.saveFile(dir + '/a/.hidden', 'new');
        r.read = Kelvara.readFile(dir + '/a/note.txt');
        r.opened = Kelvara.openFile(dir + '/a/.hidden');
        r.listing = Kelvara.listDirectory(dir + '/a').sort();
        r.deleted = Kelvara.deleteFile(dir + '/a');
        r.existsAfter = Kelvara.fileExists(dir + '/a/b');
        r.documents = Kelvara.getDocumentsPath();
        r.temp = Kelvara.getTempPath();
        return r;)JS")
                                         .arg(js(dir)));
    EXPECT_TRUE(seen["created"].toBool());
    EXPECT_TRUE(seen["createdAgain"].toBool());
    EXPECT_TRUE(seen["saved"].toBool());
    EXPECT_TRUE(seen["replaced"].toBool());
    EXPECT_EQ(seen["read"].toString(), QStringLiteral("Grüße\nzwei"));
    EXPECT_EQ(seen["opened"].toString(), QStringLiteral("new"));
    EXPECT_EQ(strings(seen["listing"]), (QStringList{".hidden", "b", "note.txt"}));
    EXPECT_TRUE(seen["deleted"].toBool());
    EXPECT_FALSE(seen["existsAfter"].toBool());
    EXPECT_FALSE(QFileInfo::exists(dir + QStringLiteral("/a")));
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    EXPECT_EQ(seen["documents"].toString(), documents.isEmpty() ? QDir::homePath() : documents);
    EXPECT_EQ(seen["temp"].toString(), QDir::tempPath());
    EXPECT_TRUE(linesWithCode(500).isEmpty());
}

TEST_F(HostApiTest, FileMethodFailuresGiveTheirResultAndOneLogLineEach)
{
    QFile bad(folder + QStringLiteral("/latin1.txt"));
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly));
    bad.write("caf\xe9\n");
    bad.close();
    QFile plain(folder + QStringLiteral("/plain.txt"));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.write("keep");
    plain.close();

    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var dir = %1;
        return {
            readType: typeof Kelvara.readFile(dir + '/latin1.txt'),
            savedIntoMissingFolder: Kelvara.saveFile(dir + '/missing/x.txt', 'x'),
            savedLoneSurrogate: Kelvara.saveFile(dir + '/plain.txt', 'broken \uD800'),
            listing: Kelvara.listDirectory(dir + '/missing'),
            createdOverFile: Kelvara.createDirectory(dir + '/plain.txt'),
            deletedMissing: Kelvara.deleteFile(dir + '/missing'),
            exists: Kelvara.fileExists(dir + '/missing')
        };)JS")
                                         .arg(js(folder)));
    EXPECT_EQ(seen["readType"].toString(), QStringLiteral("undefined"));
    EXPECT_FALSE(seen["savedIntoMissingFolder"].toBool(true));
    EXPECT_FALSE(seen["savedLoneSurrogate"].toBool(true));
    EXPECT_EQ(seen["listing"].toArray(), QJsonArray());
    EXPECT_FALSE(seen["createdOverFile"].toBool(true));
    EXPECT_FALSE(seen["deletedMissing"].toBool(true));
    EXPECT_FALSE(seen["exists"].toBool(true));

    const Line read = onlyLine(404);
    EXPECT_TRUE(read.message.startsWith(QStringLiteral("[Script] Failed to read file: "))) << read.message.toStdString();
    EXPECT_TRUE(read.message.contains(QStringLiteral("UTF-8")));
    EXPECT_EQ(read.level, MCPLogMessageType::Error);

    QStringList failures;
    for (const Line &line : linesWithCode(500)) {
        EXPECT_EQ(line.level, MCPLogMessageType::Error);
        failures.append(line.message.section(QLatin1Char(':'), 0, 0));
    }
    EXPECT_EQ(failures, (QStringList{"[Script] Failed to save file", "[Script] Failed to save file",
                                     "[Script] Failed to list directory", "[Script] Failed to create directory",
                                     "[Script] Failed to delete file"}));
    // The refused write left the old file alone.
    ASSERT_TRUE(plain.open(QIODevice::ReadOnly));
    EXPECT_EQ(plain.readAll(), QByteArray("keep"));
}

TEST_F(HostApiTest, FileMethodsOpenAndCloseTheScopeOfAStoredFolder)
{
    const QString stored = TestSupport::makeTempDir(QStringLiteral("stored"));
    QFile inside(stored + QStringLiteral("/inside.txt"));
    ASSERT_TRUE(inside.open(QIODevice::WriteOnly));
    inside.write("x");
    inside.close();
    BookmarkController *security = BookmarkController::shared();
    const QUrl storedUrl = QUrl::fromLocalFile(stored);
    ASSERT_TRUE(security->addBookmark(storedUrl));
    security->stopAccess(storedUrl);
    auto accessCount = [&] {
        const auto info = security->findBookmark(storedUrl);
        return info ? info->accessCount : -1;
    };
    const int before = accessCount();

    observe(QStringLiteral("var d = %1; Kelvara.readFile(d + '/inside.txt'); Kelvara.listDirectory(d); return {};")
                .arg(js(stored)));
    // One look-up at the start and one at the end of each method.
    EXPECT_EQ(accessCount(), before + 4);
    EXPECT_FALSE(security->isAccessActive(storedUrl));
    security->removeBookmark(storedUrl);
}

TEST_F(HostApiTest, HttpMethodsSendWhatTheirArgumentsSay)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        TestHttpServer::Response response;
        response.status = request.target.startsWith("/missing") ? 404 : 200;
        response.headers = {{"Content-Type", "application/json"}};
        response.body = "{\"method\":\"" + request.method + "\"}";
        return response;
    });
    ASSERT_TRUE(server.isListening());

    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var base = %1;
        return {
            get: JSON.parse(Kelvara.httpGet(base + '/get?a=1', '{"q":"x y","n":2,"on":true}')),
            bare: JSON.parse(Kelvara.httpGet(base + '/bare')),
            post: JSON.parse(Kelvara.httpPost(base + '/post', '{"k":1}', '{"X-Token":"t","Content-Type":"text/plain"}')),
            put: JSON.parse(Kelvara.httpRequest('put', base + '/put', '', '{"id":7}')),
            missing: JSON.parse(Kelvara.httpGet(base + '/missing')),
            badParams: JSON.parse(Kelvara.httpRequest('GET', base + '/never', '', '[1]'))
        };)JS")
                                         .arg(js(server.url(QStringLiteral("")))));

    const QJsonObject get = seen["get"].toObject();
    EXPECT_TRUE(get["success"].toBool());
    EXPECT_EQ(get["statusCode"].toInt(), 200);
    EXPECT_EQ(get["body"].toString(), QStringLiteral("{\"method\":\"GET\"}"));
    EXPECT_EQ(get["error"].toString(QStringLiteral("x")), QString());
    EXPECT_EQ(get["headers"].toObject()["Content-Type"].toString(), QStringLiteral("application/json"));
    EXPECT_TRUE(seen["bare"].toObject()["success"].toBool());
    EXPECT_EQ(seen["put"].toObject()["body"].toString(), QStringLiteral("{\"method\":\"PUT\"}"));
    const QJsonObject missing = seen["missing"].toObject();
    EXPECT_FALSE(missing["success"].toBool(true));
    EXPECT_EQ(missing["statusCode"].toInt(), 404);
    const QJsonObject badParams = seen["badParams"].toObject();
    EXPECT_FALSE(badParams["success"].toBool(true));
    EXPECT_EQ(badParams["statusCode"].toInt(), 0);
    EXPECT_TRUE(badParams["error"].toString().startsWith(QStringLiteral("Invalid params JSON: ")));

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 5);
    EXPECT_EQ(requests[0].target, QByteArray("/get?a=1&n=2&on=true&q=x%20y"));
    EXPECT_EQ(requests[1].target, QByteArray("/bare"));
    EXPECT_EQ(requests[2].method, QByteArray("POST"));
    EXPECT_EQ(requests[2].body, QByteArray("{\"k\":1}"));
    EXPECT_EQ(requests[2].header("X-Token"), QByteArray("t"));
    EXPECT_EQ(requests[2].header("Content-Type"), QByteArray("text/plain"));
    // httpRequest: the method upper-cased, the fourth argument as query, no body.
    EXPECT_EQ(requests[3].method, QByteArray("PUT"));
    EXPECT_EQ(requests[3].target, QByteArray("/put?id=7"));
    EXPECT_TRUE(requests[3].body.isEmpty());
    EXPECT_TRUE(requests[3].header("Content-Type").isNull());
}

TEST_F(HostApiTest, DownloadFileReplacesTheTargetOnlyAfterSuccess)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        TestHttpServer::Response response;
        response.status = request.target == "/file" ? 200 : 500;
        response.body = request.target == "/file" ? QByteArray("downloaded") : QByteArray("oops");
        return response;
    });
    const QString target = folder + QStringLiteral("/deep/er/file.txt");
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var base = %1, target = %2;
        var first = Kelvara.downloadFile(base + '/file', target);
        var failed = Kelvara.downloadFile(base + '/broken', target);
        return {first: first, failed: failed, content: Kelvara.readFile(target)};)JS")
                                         .arg(js(server.url(QStringLiteral(""))), js(target)));
    EXPECT_TRUE(seen["first"].toBool());
    EXPECT_FALSE(seen["failed"].toBool(true));
    EXPECT_EQ(seen["content"].toString(), QStringLiteral("downloaded"));
}

TEST_F(HostApiTest, ResourceConfigMatchesPartOfANamePromptConfigOnlyAWholeOne)
{
    StoreContext *context = PersistenceController::shared()->viewContext();
    auto addResource = [&](const QString &name, const QString &uri) {
        auto *resource = context->insert<ResourceConfig>();
        resource->setId(QUuid::createUuid());
        resource->setName(name);
        resource->setUri(QUrl(uri));
        resource->setType(QStringLiteral("link"));
        resource->setMimeType(QStringLiteral("application/json"));
        resource->setResourceDescription(QStringLiteral("about ") + name);
    };
    addResource(QStringLiteral("Zulu handbook"), QStringLiteral("https://example.org/zulu"));
    addResource(QStringLiteral("Alpha handbook"), QStringLiteral("https://example.org/alpha"));
    auto *prompt = context->insert<PromptConfig>();
    prompt->setId(QUuid::createUuid());
    prompt->setName(QStringLiteral("handbook"));
    prompt->setTemplateText(QStringLiteral("Read {topic}"));

    const QString source = QStringLiteral(R"JS(
        function toolEntry() {
            return JSON.stringify({text: JSON.stringify({
                resource: Kelvara.resourceConfig('handbook'),
                noResource: Kelvara.resourceConfig('Handbook'),
                promptPart: Kelvara.promptConfig('hand'),
                prompt: Kelvara.promptConfig('handbook')
            })});
        })JS");
    const QString path = writeScript(source);
    // A tool call runs on an engine worker; the store is read on the main thread meanwhile.
    JSONToolResult result;
    std::atomic<bool> done{false};
    std::thread worker([&] {
        result = call(path);
        done = true;
    });
    EXPECT_TRUE(TestSupport::waitUntil([&] { return done.load(); }, 20000));
    worker.join();
    context->rollback();

    const QJsonObject seen = QJsonDocument::fromJson(text(result).toUtf8()).object();
    const QString resourceText = seen["resource"].toString();
    EXPECT_TRUE(resourceText.startsWith(QStringLiteral("{\n    \"annotations\": {"))) << resourceText.toStdString();
    const QJsonObject resource = QJsonDocument::fromJson(resourceText.toUtf8()).object();
    EXPECT_EQ(resource["name"].toString(), QStringLiteral("Alpha handbook"));
    EXPECT_EQ(resource["uri"].toString(), QStringLiteral("https://example.org/alpha"));
    EXPECT_EQ(resource["description"].toString(), QStringLiteral("about Alpha handbook"));
    EXPECT_EQ(seen["noResource"].toString(QStringLiteral("x")), QString());
    EXPECT_EQ(seen["promptPart"].toString(QStringLiteral("x")), QString());
    const QJsonObject found = QJsonDocument::fromJson(seen["prompt"].toString().toUtf8()).object();
    EXPECT_EQ(found["name"].toString(), QStringLiteral("handbook"));
    EXPECT_EQ(found["template"].toString(), QStringLiteral("Read {topic}"));

    QStringList notFound;
    for (const Line &line : linesWithCode(-40110)) {
        EXPECT_EQ(line.level, MCPLogMessageType::Error);
        notFound.append(line.message);
    }
    EXPECT_EQ(notFound, (QStringList{"[Script] Resource Handbook not found", "[Script] Prompt hand not found"}));
}

TEST_F(HostApiTest, ProcessKeepsStringArgumentsAndFillsTheNamedArrays)
{
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var echoed = Kelvara.process('/bin/echo', ['one', 5, 'two', null, {}, 'three'], 'echoOut', 'echoErr');
        var failed = Kelvara.process('/bin/sh',
            ['-c', 'printf "  padded  \n\n\t\nlast\r\n"; echo problem >&2; exit 3'], 'out', 'err');
        return {echoed: echoed, echoOut: echoOut, echoErr: echoErr, failed: failed, out: out, err: err,
                stdOutUntouched: stdOut.length};)JS"));
    EXPECT_TRUE(seen["echoed"].toBool());
    EXPECT_EQ(strings(seen["echoOut"]), QStringList{"one two three"});
    EXPECT_EQ(seen["echoErr"].toArray(), QJsonArray());
    EXPECT_FALSE(seen["failed"].toBool(true));
    EXPECT_EQ(strings(seen["out"]), (QStringList{"padded", "last"}));
    EXPECT_EQ(strings(seen["err"]), QStringList{"problem"});
    EXPECT_EQ(seen["stdOutUntouched"].toInt(-1), 0);

    QList<Line> exits = linesStartingWith(QStringLiteral("[Script] process() "));
    ASSERT_EQ(exits.size(), 2);
    EXPECT_EQ(exits[0].message, QStringLiteral("[Script] process() /bin/echo exited 0, stdout=1 lines, stderr=0 lines"));
    EXPECT_EQ(exits[0].level, MCPLogMessageType::Debug);
    EXPECT_EQ(exits[1].message, QStringLiteral("[Script] process() /bin/sh exited 3, stdout=2 lines, stderr=1 lines"));
    EXPECT_EQ(exits[1].level, MCPLogMessageType::Warning);
    EXPECT_EQ(exits[1].code, -1);
    const QList<Line> injected = linesStartingWith(QStringLiteral("[Script] Injected "));
    ASSERT_EQ(injected.size(), 2);
    EXPECT_EQ(injected[1].message, QStringLiteral("[Script] Injected out[2] and err[1] into JS context"));
    EXPECT_EQ(injected[1].level, MCPLogMessageType::Debug);
}

TEST_F(HostApiTest, AProgramThatCannotStartGivesFalseAndOneErrorLine)
{
    // "sh" is no path: it is not looked up in PATH, and the script's folder holds no "sh".
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var missing = Kelvara.process('/nonexistent/tool', ['x'], 'o', 'e');
        var result = {missing: missing, o: o, e: e};
        result.relative = Kelvara.process('sh', ['-c', 'true'], 'o2', 'e2');
        result.e2 = e2;
        return result;)JS"));
    EXPECT_FALSE(seen["missing"].toBool(true));
    EXPECT_EQ(seen["o"].toArray(), QJsonArray());
    EXPECT_EQ(strings(seen["e"]), QStringList{QString::fromLocal8Bit(std::strerror(ENOENT))});
    EXPECT_FALSE(seen["relative"].toBool(true));
    EXPECT_EQ(seen["e2"].toArray().size(), 1);

    const QList<Line> launches = linesWithCode(500);
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches[0].message, QStringLiteral("[Script] process() failed to launch /nonexistent/tool: ")
                                       + QString::fromLocal8Bit(std::strerror(ENOENT)));
    EXPECT_EQ(launches[0].level, MCPLogMessageType::Error);
    EXPECT_TRUE(linesStartingWith(QStringLiteral("[Script] process() /")).isEmpty());
}

TEST_F(HostApiTest, ShellReplacesStdOutAndStdErrAndSeesTheDeveloperEnvironment)
{
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        stdOut = ['earlier']; stdErr = ['earlier'];
        var ok = Kelvara.shell('echo "$PATH"; echo "$CC|$CXX|$CFLAGS|$LDFLAGS"; cat; pwd');
        var r = {ok: ok, out: stdOut, err: stdErr};
        Kelvara.shell("printf '\\377\\376\\n' ; printf 'x\\n' >&2");
        r.binaryOut = stdOut; r.textErr = stdErr;
        return r;)JS"));
    EXPECT_TRUE(seen["ok"].toBool());
    const QStringList out = strings(seen["out"]);
    ASSERT_EQ(out.size(), 3);
    EXPECT_EQ(out[0], QStringLiteral("/usr/local/bin:/usr/bin:/bin:") + qEnvironmentVariable("PATH", QStringLiteral(".")));
    EXPECT_EQ(out[1], QStringLiteral("/usr/bin/cc|/usr/bin/c++|--sysroot=/|-L/usr/lib"));
    // Standard input is empty ("cat" ends at once); the current folder is the script's.
    EXPECT_EQ(QFileInfo(out[2]).canonicalFilePath(), QFileInfo(folder).canonicalFilePath());
    EXPECT_EQ(seen["err"].toArray(), QJsonArray());
    // Output that is no UTF-8 gives no lines; the other stream is unaffected.
    EXPECT_EQ(seen["binaryOut"].toArray(), QJsonArray());
    EXPECT_EQ(strings(seen["textErr"]), QStringList{"x"});
}

TEST_F(HostApiTest, PlentyOfOutputOnBothStreamsArrivesWhole)
{
    const QJsonObject seen = observe(QStringLiteral(R"JS(
        var ok = Kelvara.shell('i=0; while [ $i -lt 3 ]; do seq 1 40000 >&2; seq 1 40000; i=$((i+1)); done');
        return {ok: ok, out: stdOut.length, err: stdErr.length, last: stdOut[stdOut.length - 1]};)JS"));
    EXPECT_TRUE(seen["ok"].toBool());
    EXPECT_EQ(seen["out"].toInt(), 120000);
    EXPECT_EQ(seen["err"].toInt(), 120000);
    EXPECT_EQ(seen["last"].toString(), QStringLiteral("40000"));
}

TEST_F(HostApiTest, OutputIsNotForwardedWithoutAContextAndTheExitStillCounts)
{
    ScriptBridge bridge(QStringLiteral("no-context"), PluginController::shared());
    EXPECT_TRUE(bridge.process(QStringLiteral("/bin/true"), {}, QStringLiteral("o"), QStringLiteral("e")));
    EXPECT_FALSE(bridge.shell(QStringLiteral("exit 1")));
    const QList<Line> lost = linesWithCode(500);
    ASSERT_EQ(lost.size(), 2);
    EXPECT_EQ(lost[0].message, QStringLiteral("[Script] injectOutputArrays: jsContext is nil – output not forwarded"));
}

TEST(ScriptProcessLines, AreTrimmedWithoutEmptyOnesAndNeedUtf8)
{
    EXPECT_EQ(ScriptProcess::lines("  a \r\n\r\n\t\n b\rc\n\n"), (QStringList{"a", "b", "c"}));
    EXPECT_EQ(ScriptProcess::lines(QStringLiteral("x\u2028y").toUtf8()), (QStringList{"x", "y"}));
    EXPECT_TRUE(ScriptProcess::lines("ok\n\xff\n").isEmpty());
    EXPECT_TRUE(ScriptProcess::lines("").isEmpty());

    QProcessEnvironment bare;
    bare.insert(QStringLiteral("HOME"), QStringLiteral("/home/x"));
    const QProcessEnvironment widened = ScriptProcess::developerEnvironment(bare);
    EXPECT_EQ(widened.value(QStringLiteral("PATH")), QStringLiteral("/usr/local/bin:/usr/bin:/bin:."));
    EXPECT_EQ(widened.value(QStringLiteral("HOME")), QStringLiteral("/home/x"));
}

}  // namespace
