#include "tests/http/TestHttpServer.h"
#include "tests/support/TestSupport.h"
#include "base/UserDefaults.h"
#include "tools/http/HttpClient.h"
#include "tools/http/HttpClientError.h"
#include "tools/http/TransferStopCheck.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <thread>
#include <ostream>

namespace {

using Response = TestHttpServer::Response;

const QString kDefaultAccept = QStringLiteral("application/json, text/plain, text/html, text/xml, */*");

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("<missing>");
}

class HttpClientTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // The client honours proxies from the environment; the test server is always direct.
        qputenv("no_proxy", "127.0.0.1,localhost");
        qputenv("NO_PROXY", "127.0.0.1,localhost");
    }
};

}  // namespace

TEST_F(HttpClientTest, ParametersAreAppendedAsTextToTheExistingQuery)
{
    TestHttpServer server([](const TestHttpServer::Request &) { return Response{200, {}, "ok"}; });
    ASSERT_TRUE(server.isListening());
    HttpClient client;

    const HttpClientResult result = client.get(server.url(QStringLiteral("/search?q=old&x=1#top")),
                                               QStringLiteral("{\"n\":5,\"ratio\":0.25,\"flag\":true,\"s\":\"a b&c=d\"}"));
    EXPECT_TRUE(result.success && result.body == QStringLiteral("ok"));
    // An empty parameter text adds nothing; the method is upper-cased.
    EXPECT_TRUE(client.request(QStringLiteral("get"), server.url(QStringLiteral("/plain?x=1")), QString(), QString(), QString()).success);

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].method + ' ' + requests[0].target, QByteArray("GET /search?q=old&x=1&flag=true&n=5&ratio=0.25&s=a%20b%26c%3Dd"));
    EXPECT_EQ(requests[1].method + ' ' + requests[1].target, QByteArray("GET /plain?x=1"));
}

TEST_F(HttpClientTest, UnusableArgumentsFailBeforeAnythingIsSent)
{
    HttpClient client;
    const QString url = QStringLiteral("http://127.0.0.1:9/x");
    struct Case {
        QString url, body, params, headers;
        int code;
        QString description;
    };
    const QString loneSurrogate = QString(QChar(0xD800));
    const Case cases[] = {
        {url, {}, QStringLiteral("[1,2]"), {}, 1010, QStringLiteral("Invalid params JSON: JSON value is not an object / dictionary")},
        {url, {}, QStringLiteral("{\"a\":") + loneSurrogate + QStringLiteral("}"), {}, 1010,
         QStringLiteral("Invalid params JSON: Cannot encode JSON string as UTF-8 data")},
        {url, {}, {}, QStringLiteral("[]"), 1012, QStringLiteral("Invalid headers JSON: JSON value is not an object / dictionary")},
        {QStringLiteral("http://exa mple.com/"), {}, {}, {}, 1011, QStringLiteral("Malformed URL: http://exa mple.com/")},
        {QString(), {}, {}, {}, 1011, QStringLiteral("Malformed URL: ")},
        {url, QStringLiteral("body ") + loneSurrogate, {}, {}, 1013, QStringLiteral("Cannot encode request body as UTF-8")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.description.toStdString());
        const HttpClientResult result = client.request(QStringLiteral("POST"), c.url, c.body, c.params, c.headers);
        EXPECT_EQ(result.error.value_or(AppError{}).toString(), QStringLiteral("Error Domain=com.tamsel.kelvara.HttpClient Code=%1 \"%2\"").arg(c.code).arg(c.description));
        EXPECT_EQ(result.error.value_or(AppError{}).code, c.code);
        EXPECT_EQ(result.toJSONString(),
                  QStringLiteral(R"({"body":"","error":"%1","headers":{},"statusCode":0,"success":false})").arg(c.description));
    }

    // A parse error is handed on inside 1010 / 1012; a bare scalar is no JSON document here either.
    const Result<HttpRequest> unparsed = client.buildRequest(QStringLiteral("GET"), url, {}, QStringLiteral("{\"a\":"), {});
    ASSERT_FALSE(unparsed.ok());
    const AppError &error = unparsed.error();
    EXPECT_EQ(error.code, 1010);
    EXPECT_GT(error.description.size(), QStringLiteral("Invalid params JSON: ").size());
    EXPECT_TRUE(error.description.startsWith(QStringLiteral("Invalid params JSON: "))) << error.description;
    const Result<HttpRequest> scalar = client.buildRequest(QStringLiteral("GET"), url, {}, {}, QStringLiteral("\"text\""));
    ASSERT_FALSE(scalar.ok());
    EXPECT_EQ(scalar.error().code, 1012);
    const Result<HttpRequest> nonsense = client.buildRequest(QStringLiteral("GET"), url, {}, QStringLiteral("nonsense"), {});
    ASSERT_FALSE(nonsense.ok());
    EXPECT_EQ(client.get(url, QStringLiteral("nonsense")).error.value_or(AppError{}).description, nonsense.error().description);
    EXPECT_EQ(nonsense.error().code, 1010);
}

TEST_F(HttpClientTest, BodyHeadersAreSetOnlyForABodyAndHeadersFromTheJSONWinOverEachDefault)
{
    TestHttpServer server([](const TestHttpServer::Request &) { return Response{200, {}, "{}"}; });
    HttpClient client;
    EXPECT_TRUE(client.post(server.url(QStringLiteral("/empty")), QString()).success);
    EXPECT_TRUE(client.post(server.url(QStringLiteral("/full")), QStringLiteral("{\"w\":\"gr\u00fc\u00df\"}")).success);
    const QString headers = QStringLiteral("{\"accept\":\"text/csv\",\"content-type\":\"text/plain\",\"X-Count\":7,\"X-On\":false}");
    EXPECT_TRUE(client.request(QStringLiteral("PUT"), server.url(QStringLiteral("/h")), QStringLiteral("a,b"), QString(), headers).success);

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 3);
    const TestHttpServer::Request &empty = requests[0];
    EXPECT_EQ(empty.method, QByteArray("POST"));
    EXPECT_EQ(empty.headerCount("Content-Length") + empty.headerCount("Content-Type"), 0);
    EXPECT_EQ(empty.header("Accept"), kDefaultAccept.toUtf8());
    EXPECT_TRUE(empty.body.isEmpty());

    const TestHttpServer::Request &full = requests[1];
    const QByteArray body = QStringLiteral("{\"w\":\"gr\u00fc\u00df\"}").toUtf8();
    EXPECT_EQ(full.body, body);
    EXPECT_EQ(full.header("Content-Length"), QByteArray::number(body.size()));
    EXPECT_EQ(full.header("Content-Type"), QByteArray("application/json; charset=utf-8"));
    EXPECT_EQ(full.header("Accept"), kDefaultAccept.toUtf8());
    EXPECT_EQ(full.headerCount("Expect"), 0);

    const TestHttpServer::Request &custom = requests[2];
    EXPECT_EQ(custom.method, QByteArray("PUT"));
    EXPECT_EQ(custom.headerCount("Accept") + custom.headerCount("Content-Type"), 2);
    EXPECT_EQ(custom.header("Accept") + '|' + custom.header("Content-Type") + '|' + custom.header("Content-Length") + '|'
                  + custom.header("X-Count") + '|' + custom.header("X-On") + '|' + custom.body,
              QByteArray("text/csv|text/plain|3|7|false|a,b"));

    EXPECT_EQ(client.buildRequest(QStringLiteral("post"), server.url(), {}, {}, {})->timeoutInterval, 30.0);
}

// Error statuses, redirects and bodies in either encoding are answers, not failures.
TEST_F(HttpClientTest, ResponsesAreReportedAsTheFinalAnswerGivesThem)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        if (request.target == "/missing")
            return Response{404, {{"X-Reason", "gone"}, {"Set-Cookie", "a=1"}, {"set-cookie", "b=2"}}, "no such thing"};
        if (request.target == "/old")
            return Response{302, {{"Location", "/new"}, {"X-Hop", "first"}}, ""};
        if (request.target == "/new")
            return Response{200, {{"X-Final", "yes"}}, "arrived"};
        if (request.target == "/latin1")
            return Response{200, {}, QByteArray("caf\xE9 \xA3" "5")};
        if (request.target == "/utf8")
            return Response{200, {}, QStringLiteral("caf\u00e9 \u20ac5").toUtf8()};
        return Response{204, {}, QByteArray()};
    });
    HttpClient client;
    const HttpClientResult missing = client.get(server.url(QStringLiteral("/missing")));
    EXPECT_EQ(missing.statusCode, 404);
    EXPECT_FALSE(missing.success);
    EXPECT_FALSE(missing.error.has_value());
    EXPECT_EQ(missing.body, QStringLiteral("no such thing"));
    EXPECT_EQ(missing.headers.value(QStringLiteral("X-Reason")), QStringLiteral("gone"));
    EXPECT_EQ(missing.headers.value(QStringLiteral("Set-Cookie")), QStringLiteral("a=1, b=2"));

    const HttpClientResult moved = client.get(server.url(QStringLiteral("/old")));
    EXPECT_EQ(moved.statusCode, 200);
    EXPECT_EQ(moved.body, QStringLiteral("arrived"));
    EXPECT_EQ(moved.headers.value(QStringLiteral("X-Final")), QStringLiteral("yes"));
    EXPECT_FALSE(moved.headers.contains(QStringLiteral("X-Hop")));

    EXPECT_EQ(client.get(server.url(QStringLiteral("/latin1"))).body, QStringLiteral("caf\u00e9 \u00a35"));
    EXPECT_EQ(client.get(server.url(QStringLiteral("/utf8"))).body, QStringLiteral("caf\u00e9 \u20ac5"));
    const HttpClientResult empty = client.get(server.url(QStringLiteral("/empty")));
    EXPECT_EQ(empty.statusCode, 204);
    EXPECT_TRUE(empty.success);
    EXPECT_EQ(empty.body, QString());
}

TEST_F(HttpClientTest, DownloadReplacesTheFileOnlyAfterSuccess)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        if (request.target == "/broken")
            return Response{500, {}, "server trouble"};
        return Response{200, {}, "fresh content\n"};
    });
    HttpClient client;
    const QString dir = TestSupport::makeTempDir();
    const QString destination = dir + QStringLiteral("/data.txt");
    QFile old(destination);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly) && old.write("old content") == 11);
    old.close();

    const Result<void> broken = client.downloadFile(server.url(QStringLiteral("/broken")), destination);
    ASSERT_FALSE(broken.ok());
    EXPECT_EQ(broken.error().code, 500);
    EXPECT_EQ(broken.error().description, QStringLiteral("Server returned HTTP 500"));
    EXPECT_EQ(readFile(destination), QStringLiteral("old content"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("data.txt")});  // no leftovers

    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/file")), destination).ok());
    EXPECT_EQ(readFile(destination), QStringLiteral("fresh content\n"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("data.txt")});

    // (Missing parent folders are made: see the host object's download.)
    // A bare file name lands in the current folder and makes no folder.
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir));
    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/file")), QStringLiteral("bare.txt")).ok());
    QDir::setCurrent(previous);
    EXPECT_EQ(readFile(dir + QStringLiteral("/bare.txt")), QStringLiteral("fresh content\n"));
    EXPECT_TRUE(QDir(dir).entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());

    const Result<void> malformed = client.downloadFile(QStringLiteral("http://bad host/"), destination);
    ASSERT_FALSE(malformed.ok());
    EXPECT_EQ(malformed.error().code, 1020);
    EXPECT_EQ(malformed.error().description, QStringLiteral("Malformed URL: http://bad host/"));
    EXPECT_EQ(readFile(destination), QStringLiteral("fresh content\n"));
}

TEST_F(HttpClientTest, ARequestTimesOutWhenNoDataMovesForTheTimeoutInterval)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        return Response{200, {}, "slow but steady", request.target == "/silent" ? Response::Mode::NeverAnswer : Response::Mode::Dribble, 100};
    });
    HttpClient client;
    client.timeoutInterval = 1.0;
    EXPECT_EQ(client.resourceTimeoutInterval(), 120.0);  // fixed when the client was made

    const auto start = std::chrono::steady_clock::now();
    const HttpClientResult silent = client.get(server.url(QStringLiteral("/silent")));
    const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(silent.toJSONString(), QStringLiteral(R"({"body":"","error":"The request timed out.","headers":{},"statusCode":0,"success":false})"));
    EXPECT_GE(waited, 0.9);  // it did wait for the interval, not for the 120 s cap

    // A response that takes longer than the interval in all, but never stalls, goes through.
    const HttpClientResult steady = client.get(server.url(QStringLiteral("/steady")));
    EXPECT_FALSE(steady.error.has_value()) << steady.error.value_or(AppError{}).description.toStdString();
    EXPECT_EQ(steady.body, QStringLiteral("slow but steady"));
}

TEST_F(HttpClientTest, TransportFailuresAreResultsWithStatusZero)
{
    int port = 0;
    {
        TestHttpServer closed([](const TestHttpServer::Request &) { return Response{200, {}, ""}; });
        port = closed.port();
    }
    const HttpClientResult result = HttpClient::shared().get(QStringLiteral("http://127.0.0.1:%1/").arg(port), QString());
    ASSERT_TRUE(result.error.has_value());
    EXPECT_FALSE(result.error->description.isEmpty());
    EXPECT_EQ(result.statusCode, 0);
    EXPECT_FALSE(result.success);
}

TEST_F(HttpClientTest, TheSharedClientServesConcurrentCallers)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        return Response{200, {}, "echo " + request.target, Response::Mode::Dribble, 5};  // dribbled: the calls overlap
    });
    constexpr int kCallers = 6;
    QString bodies[kCallers];
    std::vector<std::thread> threads;
    for (int i = 0; i < kCallers; ++i)
        threads.emplace_back([&, i] { bodies[i] = HttpClient::shared().get(server.url(QStringLiteral("/n%1").arg(i))).body; });
    for (auto &thread : threads)
        thread.join();
    for (int i = 0; i < kCallers; ++i)
        EXPECT_EQ(bodies[i], QStringLiteral("echo /n%1").arg(i));
}

TEST_F(HttpClientTest, ABodyOverTheSizeLimitIsRefusedWhetherItsLengthIsDeclaredOrNot)
{
    constexpr qint64 kLimit = 256 * 1024;
    TestHttpServer server([](const TestHttpServer::Request &request) {
        if (request.target == "/endless")
            return Response{200, {}, QByteArray(64 * 1024, 'x'), Response::Mode::Endless};
        return Response{200, {}, QByteArray(request.target == "/declared" ? kLimit + 1 : kLimit, 'y')};
    });
    HttpClient client;
    client.maxResponseBytes = kLimit;
    const QString expected = QStringLiteral("The response is larger than 262144 bytes, the limit of mcp.http.maxResponseBytes");

    for (const char *path : {"/endless", "/declared"}) {
        const HttpClientResult refused = client.get(server.url(QString::fromLatin1(path)));
        ASSERT_TRUE(refused.error.has_value()) << path;
        EXPECT_EQ(refused.error->code, int(HttpClientError::ResponseTooLarge));
        EXPECT_EQ(refused.error->description, expected);
        EXPECT_EQ(refused.statusCode, 0);
        EXPECT_FALSE(refused.success);
        EXPECT_EQ(refused.body, QString());
    }
    // The script sees the limit in the result's JSON text.
    EXPECT_TRUE(client.get(server.url(QStringLiteral("/endless"))).toJSONString().contains("\"error\":\"" + expected + "\""));

    // A body of exactly the limit is whole.
    const HttpClientResult atLimit = client.get(server.url(QStringLiteral("/exact")));
    EXPECT_FALSE(atLimit.error.has_value());
    EXPECT_EQ(atLimit.body.size(), kLimit);

    // A download goes to a file, not to memory: the limit does not apply.
    const QString destination = TestSupport::makeTempDir() + QStringLiteral("/big.bin");
    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/declared")), destination));
    EXPECT_EQ(QFileInfo(destination).size(), kLimit + 1);
}

TEST_F(HttpClientTest, TheSizeLimitComesFromTheSettingsUnlessTheClientSetsOne)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        return Response{200, {}, QByteArray(request.target.mid(1).toInt(), 'z')};
    });
    const auto settings = UserDefaults::standard();
    settings->setValue(HttpClient::maxResponseBytesKey, 1000);
    HttpClient client;
    EXPECT_EQ(HttpClient::configuredMaxResponseBytes(), 1000);
    EXPECT_TRUE(client.get(server.url(QStringLiteral("/1000"))).success);
    EXPECT_EQ(client.get(server.url(QStringLiteral("/1001"))).error.value_or(AppError{}).code, int(HttpClientError::ResponseTooLarge));
    client.maxResponseBytes = 2000;
    EXPECT_TRUE(client.get(server.url(QStringLiteral("/1001"))).success);

    // A value that is no positive number gives the default.
    for (const QVariant &unusable : {QVariant(0), QVariant(-5), QVariant(QStringLiteral("lots"))}) {
        settings->setValue(HttpClient::maxResponseBytesKey, unusable);
        EXPECT_EQ(HttpClient::configuredMaxResponseBytes(), HttpClient::defaultMaxResponseBytes);
    }
    settings->remove(HttpClient::maxResponseBytesKey);
    EXPECT_EQ(HttpClient::configuredMaxResponseBytes(), qint64(16) << 20);
}

TEST_F(HttpClientTest, TheThreadsStopCheckEndsATricklingTransferAndADownloadWithItsReason)
{
    // One byte every 50 ms, for ever: it never stands still long enough for the idle time-out.
    TestHttpServer server([](const TestHttpServer::Request &) { return Response{200, {}, ".", Response::Mode::Endless, 50}; });
    HttpClient client;
    const QString reason = QStringLiteral("Stopped by the test");
    {
        // Stops once a few bytes went out, while the transfer is under way.
        const TransferStopCheck check([&]() -> std::optional<QString> {
            return server.bytesSent() >= 3 ? std::optional<QString>(reason) : std::nullopt;
        });
        const HttpClientResult stopped = client.get(server.url(QStringLiteral("/trickle")));
        ASSERT_TRUE(stopped.error.has_value());
        EXPECT_EQ(stopped.error->code, int(HttpClientError::TransferStopped));
        EXPECT_EQ(stopped.error->description, reason);
        EXPECT_EQ(stopped.statusCode, 0);

        const QString dir = TestSupport::makeTempDir();
        const Result<void> downloaded = client.downloadFile(server.url(QStringLiteral("/trickle")), dir + QStringLiteral("/file.txt"));
        ASSERT_FALSE(downloaded.ok());
        EXPECT_EQ(downloaded.error().description, reason);
        EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden).isEmpty());  // no partial file left

        // An inner check holds while it lives; the outer one comes back after it.
        {
            const TransferStopCheck inner([] { return std::optional<QString>(QStringLiteral("inner")); });
            EXPECT_EQ(TransferStopCheck::reasonToStop().value_or(QString()), QStringLiteral("inner"));
        }
        EXPECT_EQ(TransferStopCheck::reasonToStop().value_or(QString()), reason);
    }
    EXPECT_FALSE(TransferStopCheck::reasonToStop().has_value());

    // A call that is over already sends nothing.
    const int before = int(server.requests().size());
    const TransferStopCheck atOnce([] { return std::optional<QString>(QStringLiteral("over")); });
    EXPECT_EQ(client.get(server.url(QStringLiteral("/late"))).error.value_or(AppError{}).description, QStringLiteral("over"));
    EXPECT_EQ(server.requests().size(), before);
}
