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
#include <sys/stat.h>
#include <cstring>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

class HostApiTest : public ScriptTestFixture {
protected:
    // Runs `body` (the inside of a function that returns an object) as a tool script on a
    // worker thread, as the engine does, and gives back that object.
    QJsonObject observe(const QString &body)
    {
        const QString path = writeScript("function observe() {\n" + body
                                         + "\n}\nfunction toolEntry() {\n"
                                           "    return JSON.stringify({text: JSON.stringify(observe())});\n}\n");
        JSONToolResult result;
        std::atomic<bool> done{false};
        std::thread worker([&] {
            result = call(path);
            done = true;
        });
        EXPECT_TRUE(TestSupport::waitUntil([&] { return done.load(); }, 20000));
        worker.join();
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(text(result).toUtf8(), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << text(result);
        return document.object();
    }

    QList<Line> linesStartingWith(const QString &prefix)
    {
        QList<Line> found;
        for (const Line &line : log.all())
            if (line.message.startsWith(prefix))
                found.append(line);
        return found;
    }

    static QString js(const QString &text)
    {
        return QString::fromUtf8(QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
    }

};

TEST_F(HostApiTest, FileMethodsWriteReadListCreateAndDelete)
{
    const QString dir = folder + u"/work"_s;
    const QJsonObject seen = observe(uR"JS(
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
        return r;)JS"_s.arg(js(dir)));
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    EXPECT_EQ(seen, (QJsonObject{{"created", true}, {"createdAgain", true}, {"saved", true}, {"replaced", true},
                                 {"read", u"Grüße\nzwei"_s}, {"opened", "new"}, {"listing", QJsonArray{".hidden", "b", "note.txt"}},
                                 {"deleted", true}, {"existsAfter", false},
                                 {"documents", documents.isEmpty() ? QDir::homePath() : documents}, {"temp", QDir::tempPath()}}));
    EXPECT_FALSE(QFileInfo::exists(dir + u"/a"_s));
    EXPECT_TRUE(linesWithCode(500).isEmpty());
}

TEST_F(HostApiTest, FileMethodFailuresGiveTheirResultAndOneLogLineEach)
{
    writeBytes("caf\xe9\n", u"latin1.txt"_s);
    QFile plain(writeBytes("keep", u"plain.txt"_s));

    const QJsonObject seen = observe(uR"JS(
        var dir = %1;
        return {
            readType: typeof Kelvara.readFile(dir + '/latin1.txt'),
            latin1: Kelvara.readFileBase64(dir + '/latin1.txt'),
            base64Type: typeof Kelvara.readFileBase64(dir + '/missing.png'),
            savedIntoMissingFolder: Kelvara.saveFile(dir + '/missing/x.txt', 'x'),
            savedLoneSurrogate: Kelvara.saveFile(dir + '/plain.txt', 'broken \uD800'),
            listing: Kelvara.listDirectory(dir + '/missing'),
            createdOverFile: Kelvara.createDirectory(dir + '/plain.txt'),
            deletedMissing: Kelvara.deleteFile(dir + '/missing'),
            exists: Kelvara.fileExists(dir + '/missing')
        };)JS"_s.arg(js(folder)));
    EXPECT_EQ(seen, (QJsonObject{{"readType", "undefined"}, {"latin1", "Y2Fm6Qo="}, {"base64Type", "undefined"},
                                 {"savedIntoMissingFolder", false}, {"savedLoneSurrogate", false},
                                 {"listing", QJsonArray()}, {"createdOverFile", false}, {"deletedMissing", false},
                                 {"exists", false}}));

    const QStringList reads = described(linesWithCode(404));
    ASSERT_EQ(reads.size(), 2) << reads.join(u'\n').toStdString();
    EXPECT_TRUE(reads.first().startsWith(u"E 404 [Script] Failed to read file: "_s) && reads.first().contains(u"UTF-8"_s))
        << reads.first();
    EXPECT_TRUE(reads.last().startsWith(u"E 404 [Script] Failed to read file: "_s) && reads.last().contains(u"missing.png"_s))
        << reads.last();

    QStringList failures;
    for (const QString &line : described(linesWithCode(500)))
        failures.append(line.section(u':', 0, 0));
    EXPECT_EQ(failures, (QStringList{"E 500 [Script] Failed to save file", "E 500 [Script] Failed to save file",
                                     "E 500 [Script] Failed to list directory", "E 500 [Script] Failed to create directory",
                                     "E 500 [Script] Failed to delete file"}));
    // The refused write left the old file alone.
    ASSERT_TRUE(plain.open(QIODevice::ReadOnly));
    EXPECT_EQ(plain.readAll(), QByteArray("keep"));
}

TEST_F(HostApiTest, FileMethodsOpenAndCloseTheScopeOfAStoredFolder)
{
    const QString stored = TestSupport::makeTempDir(u"stored"_s);
    writeBytes({}, u"inside.txt"_s, stored);
    BookmarkController *security = BookmarkController::shared();
    const QUrl storedUrl = QUrl::fromLocalFile(stored);
    ASSERT_TRUE(security->addBookmark(storedUrl));
    security->stopAccess(storedUrl);
    const int before = security->findBookmark(storedUrl)->accessCount;

    observe(u"var d = %1; Kelvara.readFile(d + '/inside.txt'); Kelvara.listDirectory(d); return {};"_s.arg(js(stored)));
    // One look-up at the start and one at the end of each method.
    EXPECT_EQ(security->findBookmark(storedUrl)->accessCount, before + 4);
    EXPECT_FALSE(security->isAccessActive(storedUrl));
    security->removeBookmark(storedUrl);
}

TEST_F(HostApiTest, FileMethodsOutsideTheGrantedFoldersAreRefusedAndTouchNothing)
{
    const QString outside = QFileInfo(TestSupport::makeTempDir(u"outside"_s)).canonicalFilePath();
    writeBytes("keep", u"kept.txt"_s, outside);
    ASSERT_EQ(::mkfifo(QFile::encodeName(folder + u"/pipe"_s).constData(), 0600), 0);
    TestHttpServer server([](const TestHttpServer::Request &) {
        return TestHttpServer::Response{200, {{"Content-Type", "text/plain"}}, "downloaded"};
    });
    ASSERT_TRUE(server.isListening());

    const QJsonObject seen = observe(uR"JS(
        var out = %1, granted = %2;
        return {
            read: typeof Kelvara.readFile(out + '/kept.txt'),
            exists: Kelvara.fileExists(out + '/kept.txt'),
            saved: Kelvara.saveFile(out + '/kept.txt', 'changed'),
            listing: Kelvara.listDirectory(out),
            created: Kelvara.createDirectory(out + '/made'),
            deleted: Kelvara.deleteFile(out + '/kept.txt'),
            downloaded: Kelvara.downloadFile(%3, out + '/down.txt'),
            climbed: Kelvara.saveFile(granted + '/../' + %4 + '/planted.txt', 'x'),
            intoFifo: Kelvara.saveFile(granted + '/pipe', 'x')
        };)JS"_s.arg(js(outside), js(folder), js(server.url(u"/file"_s)), js(QFileInfo(outside).fileName())));
    EXPECT_EQ(seen, (QJsonObject{{"read", "undefined"}, {"exists", false}, {"saved", false}, {"listing", QJsonArray()},
                                 {"created", false}, {"deleted", false}, {"downloaded", false}, {"climbed", false},
                                 {"intoFifo", false}}));
    QFile kept(outside + u"/kept.txt"_s);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), QByteArray("keep"));
    EXPECT_EQ(QDir(outside).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"kept.txt"});
    EXPECT_TRUE(server.requests().isEmpty()) << "the download was refused before it began";
    struct stat st {};
    ASSERT_EQ(::lstat(QFile::encodeName(folder + u"/pipe"_s).constData(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));

    const QString how = u" is not granted. Grant its folder in Settings ▸ Security Scopes, or run: kelvara access grant folder "_s + outside;
    EXPECT_EQ(described({onlyLine(404)}).first(), "E 404 [Script] Failed to read file: Access to '" + outside + "/kept.txt'" + how);
    QStringList failures;
    for (const QString &line : described(linesWithCode(500)))
        failures.append(line.section(u':', 0, 0));
    EXPECT_EQ(failures, (QStringList{"E 500 [Script] Failed to check file", "E 500 [Script] Failed to save file",
                                     "E 500 [Script] Failed to list directory", "E 500 [Script] Failed to create directory",
                                     "E 500 [Script] Failed to delete file", "E 500 [Script] Failed to download file",
                                     "E 500 [Script] Failed to save file", "E 500 [Script] Failed to save file"}));
    EXPECT_TRUE(described(linesWithCode(500)).last().endsWith(u"couldn't be saved: it is not a regular file"_s));
}

TEST_F(HostApiTest, HttpMethodsSendWhatTheirArgumentsSayAndDownloadsReplaceOnlyAfterSuccess)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        return TestHttpServer::Response{request.target.startsWith("/missing") || request.target == "/broken" ? 404 : 200,
                                        {{"Content-Type", "application/json"}}, "{\"method\":\"" + request.method + "\"}"};
    });
    ASSERT_TRUE(server.isListening());
    const QString target = folder + u"/deep/er/file.txt"_s;

    // Each answer as "success status body Content-Type error".
    const QJsonObject seen = observe(uR"JS(
        var base = %1, target = %2;
        function brief(text) {
            var r = JSON.parse(text);
            return [r.success, r.statusCode, r.body, r.headers['Content-Type'], r.error].join(' ');
        }
        return {
            get: brief(Kelvara.httpGet(base + '/get?a=1', '{"q":"x y","n":2,"on":true}')),
            bare: brief(Kelvara.httpGet(base + '/bare')),
            post: brief(Kelvara.httpPost(base + '/post', '{"k":1}', '{"X-Token":"t","Content-Type":"text/plain"}')),
            put: brief(Kelvara.httpRequest('put', base + '/put', '', '{"id":7}')),
            missing: brief(Kelvara.httpGet(base + '/missing')),
            badParams: brief(Kelvara.httpRequest('GET', base + '/never', '', '[1]')),
            downloaded: Kelvara.downloadFile(base + '/file', target),
            failedDownload: Kelvara.downloadFile(base + '/broken', target),
            content: Kelvara.readFile(target)
        };)JS"_s.arg(js(server.url(u""_s)), js(target)));
    auto answered = [](const char *method, int status) {
        return (status == 200 ? u"true 200 "_s : u"false 404 "_s) + "{\"method\":\"" + method + "\"} application/json ";
    };
    EXPECT_EQ(seen, (QJsonObject{{"get", answered("GET", 200)}, {"bare", answered("GET", 200)}, {"post", answered("POST", 200)},
                                 {"put", answered("PUT", 200)}, {"missing", answered("GET", 404)},
                                 {"badParams", "false 0   Invalid params JSON: JSON value is not an object / dictionary"},
                                 {"downloaded", true}, {"failedDownload", false}, {"content", "{\"method\":\"GET\"}"}}));

    // httpRequest: the method upper-cased, the fourth argument as query, no body.
    QStringList sent;
    for (const TestHttpServer::Request &request : server.requests())
        sent << QString::fromUtf8(request.method + ' ' + request.target + ' ' + request.body + ' ' + request.header("Content-Type"));
    EXPECT_EQ(sent, (QStringList{"GET /get?a=1&n=2&on=true&q=x%20y  ", "GET /bare  ", "POST /post {\"k\":1} text/plain", "PUT /put?id=7  ",
                                 "GET /missing  ", "GET /file  ", "GET /broken  "}));
    EXPECT_EQ(server.requests().at(2).header("X-Token"), "t");
}

TEST_F(HostApiTest, ResourceConfigMatchesPartOfANamePromptConfigOnlyAWholeOne)
{
    StoreContext *context = PersistenceController::shared()->viewContext();
    for (const QString &name : {u"Zulu handbook"_s, u"Alpha handbook"_s}) {
        auto *resource = context->insert<ResourceConfig>();
        resource->setId(QUuid::createUuid());
        resource->setName(name);
        resource->setUri(QUrl("https://example.org/" + name.section(u' ', 0, 0).toLower()));
        resource->setType(u"link"_s);
        resource->setMimeType(u"application/json"_s);
        resource->setResourceDescription("about " + name);
    }
    auto *prompt = context->insert<PromptConfig>();
    prompt->setId(QUuid::createUuid());
    prompt->setName(u"handbook"_s);
    prompt->setTemplateText(u"Read {topic}"_s);

    // Read on a worker while the store lives on the main thread.
    const QJsonObject seen = observe(uR"JS(
        return {resource: Kelvara.resourceConfig('handbook'), noResource: Kelvara.resourceConfig('Handbook'),
                promptPart: Kelvara.promptConfig('hand'), prompt: Kelvara.promptConfig('handbook')};)JS"_s);
    context->rollback();

    const QString resourceText = seen["resource"].toString();
    EXPECT_TRUE(resourceText.startsWith(u"{\n    \"annotations\": {"_s)) << resourceText;
    const QJsonObject resource = QJsonDocument::fromJson(resourceText.toUtf8()).object();
    EXPECT_EQ(resource["name"].toString(), "Alpha handbook");
    EXPECT_EQ(resource["uri"].toString(), "https://example.org/alpha");
    EXPECT_EQ(resource["description"].toString(), "about Alpha handbook");
    EXPECT_EQ(seen["noResource"].toString(u"x"_s), QString());
    EXPECT_EQ(seen["promptPart"].toString(u"x"_s), QString());
    const QJsonObject found = QJsonDocument::fromJson(seen["prompt"].toString().toUtf8()).object();
    EXPECT_EQ(found["name"].toString(), "handbook");
    EXPECT_EQ(found["template"].toString(), "Read {topic}");

    EXPECT_EQ(described(linesWithCode(-40110)),
              (QStringList{"E -40110 [Script] Resource Handbook not found", "E -40110 [Script] Prompt hand not found"}));
}

TEST_F(HostApiTest, ProcessKeepsStringArgumentsAndFillsTheNamedArrays)
{
    const QJsonObject seen = observe(uR"JS(
        var echoed = Kelvara.process('/bin/echo', ['one', 5, 'two', null, {}, 'three'], 'echoOut', 'echoErr');
        var failed = Kelvara.process('/bin/sh',
            ['-c', 'printf "  padded  \n\n\t\nlast\r\n"; echo problem >&2; exit 3'], 'out', 'err');
        return {echoed: echoed, echoOut: echoOut, echoErr: echoErr, failed: failed, out: out, err: err,
                stdOutUntouched: stdOut.length};)JS"_s);
    EXPECT_EQ(seen, (QJsonObject{{"echoed", true}, {"echoOut", QJsonArray{"one two three"}}, {"echoErr", QJsonArray()},
                                 {"failed", false}, {"out", QJsonArray{"padded", "last"}}, {"err", QJsonArray{"problem"}},
                                 {"stdOutUntouched", 0}}));

    EXPECT_EQ(described(linesStartingWith(u"[Script] process() "_s)),
              (QStringList{"D -1 [Script] process() /bin/echo exited 0, stdout=1 lines, stderr=0 lines",
                           "W -1 [Script] process() /bin/sh exited 3, stdout=2 lines, stderr=1 lines"}));
    EXPECT_EQ(described(linesStartingWith(u"[Script] Injected "_s)).value(1), "D -1 [Script] Injected out[2] and err[1] into JS context");
}

TEST_F(HostApiTest, AProgramThatCannotStartGivesFalseAndOneErrorLine)
{
    // "sh" is no path: it is not looked up in PATH, and the script's folder holds no "sh".
    const QJsonObject seen = observe(uR"JS(
        var missing = Kelvara.process('/nonexistent/tool', ['x'], 'o', 'e');
        var result = {missing: missing, o: o, e: e};
        result.relative = Kelvara.process('sh', ['-c', 'true'], 'o2', 'e2');
        result.e2 = e2.length;
        return result;)JS"_s);
    const QString noEntry = QString::fromLocal8Bit(std::strerror(ENOENT));
    EXPECT_EQ(seen, (QJsonObject{{"missing", false}, {"o", QJsonArray()}, {"e", QJsonArray{noEntry}}, {"relative", false},
                                 {"e2", 1}}));

    const QStringList launches = described(linesWithCode(500));
    ASSERT_EQ(launches.size(), 2);
    EXPECT_EQ(launches[0], "E 500 [Script] process() failed to launch /nonexistent/tool: " + noEntry);
    EXPECT_TRUE(linesStartingWith(u"[Script] process() /"_s).isEmpty());
}

TEST_F(HostApiTest, ShellReplacesStdOutAndStdErrAndSeesTheDeveloperEnvironment)
{
    const QJsonObject seen = observe(uR"JS(
        stdOut = ['earlier']; stdErr = ['earlier'];
        var ok = Kelvara.shell('echo "$PATH"; echo "$CC|$CXX|$CFLAGS|$LDFLAGS"; cat; pwd -P');
        var r = {ok: ok, out: stdOut, err: stdErr};
        Kelvara.shell("printf '\\377\\376\\n' ; printf 'x\\n' >&2");
        r.binaryOut = stdOut; r.textErr = stdErr;
        return r;)JS"_s);
    // Standard input is empty ("cat" ends at once); the current folder is the script's. Output
    // that is no UTF-8 gives no lines; the other stream is unaffected.
    const QJsonArray out{"/usr/local/bin:/usr/bin:/bin:" + qEnvironmentVariable("PATH", u"."_s),
                         "/usr/bin/cc|/usr/bin/c++|--sysroot=/|-L/usr/lib", QFileInfo(folder).canonicalFilePath()};
    EXPECT_EQ(seen, (QJsonObject{{"ok", true}, {"out", out}, {"err", QJsonArray()}, {"binaryOut", QJsonArray()}, {"textErr", QJsonArray{"x"}}}));
}

TEST_F(HostApiTest, PlentyOfOutputOnBothStreamsArrivesWhole)
{
    const QJsonObject seen = observe(uR"JS(
        var ok = Kelvara.shell('i=0; while [ $i -lt 3 ]; do seq 1 40000 >&2; seq 1 40000; i=$((i+1)); done');
        return {ok: ok, out: stdOut.length, err: stdErr.length, last: stdOut[stdOut.length - 1]};)JS"_s);
    EXPECT_EQ(seen, (QJsonObject{{"ok", true}, {"out", 120000}, {"err", 120000}, {"last", "40000"}}));
}

TEST_F(HostApiTest, OutputIsNotForwardedWithoutAContextAndTheExitStillCounts)
{
    ScriptBridge bridge(u"no-context"_s);
    EXPECT_TRUE(bridge.process(u"/bin/true"_s, {}, u"o"_s, u"e"_s));
    EXPECT_FALSE(bridge.shell(u"exit 1"_s));
    const QList<Line> lost = linesWithCode(500);
    ASSERT_EQ(lost.size(), 2);
    EXPECT_EQ(lost[0].message, u"[Script] injectOutputArrays: jsContext is nil – output not forwarded"_s);
}

TEST(ScriptProcessLines, AreTrimmedWithoutEmptyOnesAndNeedUtf8)
{
    EXPECT_EQ(ScriptProcess::lines("  a \r\n\r\n\t\n b\rc\n\n"), (QStringList{"a", "b", "c"}));
    EXPECT_EQ(ScriptProcess::lines(u"x\u2028y"_s.toUtf8()), (QStringList{"x", "y"}));
    EXPECT_TRUE(ScriptProcess::lines("ok\n\xff\n").isEmpty());
    EXPECT_TRUE(ScriptProcess::lines("").isEmpty());

    QProcessEnvironment bare;
    bare.insert(u"HOME"_s, u"/home/x"_s);
    const QProcessEnvironment widened = ScriptProcess::developerEnvironment(bare);
    EXPECT_EQ(widened.value(u"PATH"_s), "/usr/local/bin:/usr/bin:/bin:.");
    EXPECT_EQ(widened.value(u"HOME"_s), "/home/x");
}

}  // namespace
