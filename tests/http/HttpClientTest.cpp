#include "tests/http/TestHttpServer.h"
#include "tests/support/TestSupport.h"
#include "tools/http/HttpClient.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <thread>
#include <ostream>

namespace {

using Response = TestHttpServer::Response;

const QString kDefaultAccept = QStringLiteral("application/json, text/plain, text/html, text/xml, */*");

Response answer(int status, const QByteArray &body, QList<QPair<QByteArray, QByteArray>> headers = {})
{
    Response response;
    response.status = status;
    response.body = body;
    response.headers = std::move(headers);
    return response;
}

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("<missing>");
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
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
    TestHttpServer server([](const TestHttpServer::Request &) { return answer(200, "ok"); });
    ASSERT_TRUE(server.isListening());
    HttpClient client;

    const HttpClientResult result = client.get(server.url(QStringLiteral("/search?q=old&x=1#top")),
                                               QStringLiteral("{\"n\":5,\"ratio\":0.25,\"flag\":true,\"s\":\"a b&c=d\"}"));
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.body, QStringLiteral("ok"));
    // An empty parameter text adds nothing.
    EXPECT_TRUE(client.request(QStringLiteral("get"), server.url(QStringLiteral("/plain?x=1")), QString(), QString(), QString()).success);

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].method, QByteArray("GET"));
    EXPECT_EQ(requests[0].target, QByteArray("/search?q=old&x=1&flag=true&n=5&ratio=0.25&s=a%20b%26c%3Dd"));
    EXPECT_EQ(requests[1].target, QByteArray("/plain?x=1"));
    EXPECT_EQ(requests[1].method, QByteArray("GET"));  // the method is upper-cased
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
        AppError error;
        const HttpClientResult result = client.request(QStringLiteral("POST"), c.url, c.body, c.params, c.headers, &error);
        EXPECT_EQ(error.domain, QStringLiteral("com.tamsel.kelvara.HttpClient"));
        EXPECT_EQ(error.code, c.code);
        EXPECT_EQ(error.description, c.description);
        ASSERT_TRUE(result.error.has_value());
        EXPECT_EQ(result.error->code, c.code);
        EXPECT_EQ(result.statusCode, 0);
        EXPECT_FALSE(result.success);
        EXPECT_TRUE(result.body.isEmpty());
    }

    // A parse error is handed on inside 1010 / 1012.
    AppError error;
    EXPECT_FALSE(client.buildRequest(QStringLiteral("GET"), url, {}, QStringLiteral("{\"a\":"), {}, &error).has_value());
    EXPECT_EQ(error.code, 1010);
    EXPECT_TRUE(error.description.startsWith(QStringLiteral("Invalid params JSON: "))) << error.description.toStdString();
    EXPECT_GT(error.description.size(), QStringLiteral("Invalid params JSON: ").size());
    // A bare scalar is no JSON document here either.
    EXPECT_FALSE(client.buildRequest(QStringLiteral("GET"), url, {}, {}, QStringLiteral("\"text\""), &error).has_value());
    EXPECT_EQ(error.code, 1012);
    const HttpClientResult viaGet = client.get(url, QStringLiteral("nonsense"), &error);
    EXPECT_EQ(error.code, 1010);
    EXPECT_EQ(QJsonDocument::fromJson(viaGet.toJSONString().toUtf8()).object().value(QStringLiteral("error")).toString(),
              error.description);
}

TEST_F(HttpClientTest, BodyHeadersAreSetOnlyForABodyAndAcceptAlways)
{
    TestHttpServer server([](const TestHttpServer::Request &) { return answer(200, "{}"); });
    HttpClient client;
    EXPECT_TRUE(client.post(server.url(QStringLiteral("/empty")), QString()).success);
    EXPECT_TRUE(client.post(server.url(QStringLiteral("/full")), QStringLiteral("{\"w\":\"gr\u00fc\u00df\"}")).success);

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 2);
    const TestHttpServer::Request &empty = requests[0];
    EXPECT_EQ(empty.method, QByteArray("POST"));
    EXPECT_EQ(empty.headerCount("Content-Length"), 0);
    EXPECT_EQ(empty.headerCount("Content-Type"), 0);
    EXPECT_EQ(empty.header("Accept"), kDefaultAccept.toUtf8());
    EXPECT_TRUE(empty.body.isEmpty());

    const TestHttpServer::Request &full = requests[1];
    const QByteArray body = QStringLiteral("{\"w\":\"gr\u00fc\u00df\"}").toUtf8();
    EXPECT_EQ(full.body, body);
    EXPECT_EQ(full.header("Content-Length"), QByteArray::number(body.size()));
    EXPECT_EQ(full.header("Content-Type"), QByteArray("application/json; charset=utf-8"));
    EXPECT_EQ(full.header("Accept"), kDefaultAccept.toUtf8());
    EXPECT_EQ(full.headerCount("Expect"), 0);

    // The built request says the same.
    const std::optional<HttpRequest> built =
        client.buildRequest(QStringLiteral("post"), server.url(), QString(), QString(), QString(), nullptr);
    ASSERT_TRUE(built.has_value());
    EXPECT_EQ(built->method, QStringLiteral("POST"));
    EXPECT_FALSE(built->hasHeader(QStringLiteral("Content-Length")));
    EXPECT_FALSE(built->hasHeader(QStringLiteral("Content-Type")));
    EXPECT_EQ(built->value(QStringLiteral("Accept")), kDefaultAccept);
    EXPECT_EQ(built->timeoutInterval, 30.0);
}

TEST_F(HttpClientTest, HeadersFromTheJSONWinOverEachDefault)
{
    TestHttpServer server([](const TestHttpServer::Request &) { return answer(200, "ok"); });
    HttpClient client;
    const QString headers = QStringLiteral("{\"accept\":\"text/csv\",\"content-type\":\"text/plain\",\"X-Count\":7,\"X-On\":false}");
    EXPECT_TRUE(client.request(QStringLiteral("PUT"), server.url(QStringLiteral("/h")), QStringLiteral("a,b"), QString(), headers).success);

    const QList<TestHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 1);
    const TestHttpServer::Request &request = requests[0];
    EXPECT_EQ(request.method, QByteArray("PUT"));
    EXPECT_EQ(request.headerCount("Accept"), 1);
    EXPECT_EQ(request.header("Accept"), QByteArray("text/csv"));
    EXPECT_EQ(request.headerCount("Content-Type"), 1);
    EXPECT_EQ(request.header("Content-Type"), QByteArray("text/plain"));
    EXPECT_EQ(request.header("Content-Length"), QByteArray("3"));
    EXPECT_EQ(request.header("X-Count"), QByteArray("7"));
    EXPECT_EQ(request.header("X-On"), QByteArray("false"));
    EXPECT_EQ(request.body, QByteArray("a,b"));
}

TEST_F(HttpClientTest, AnHttpErrorStatusIsNoFailure)
{
    TestHttpServer server([](const TestHttpServer::Request &) {
        return answer(404, "no such thing", {{"X-Reason", "gone"}, {"Set-Cookie", "a=1"}, {"set-cookie", "b=2"}});
    });
    HttpClient client;
    const HttpClientResult result = client.get(server.url(QStringLiteral("/missing")));
    EXPECT_EQ(result.statusCode, 404);
    EXPECT_FALSE(result.success);
    EXPECT_FALSE(result.error.has_value());
    EXPECT_EQ(result.body, QStringLiteral("no such thing"));
    EXPECT_EQ(result.headers.value(QStringLiteral("X-Reason")), QStringLiteral("gone"));
    EXPECT_EQ(result.headers.value(QStringLiteral("Set-Cookie")), QStringLiteral("a=1, b=2"));

    const QJsonObject json = QJsonDocument::fromJson(result.toJSONString().toUtf8()).object();
    EXPECT_EQ(json.value(QStringLiteral("error")).toString(QStringLiteral("<absent>")), QString());
    EXPECT_EQ(json.value(QStringLiteral("statusCode")).toInt(), 404);
    EXPECT_FALSE(json.value(QStringLiteral("success")).toBool(true));
    EXPECT_EQ(json.value(QStringLiteral("body")).toString(), QStringLiteral("no such thing"));
    EXPECT_EQ(json.value(QStringLiteral("headers")).toObject().value(QStringLiteral("X-Reason")).toString(), QStringLiteral("gone"));
}

TEST_F(HttpClientTest, FollowsRedirectsAndReportsTheFinalResponse)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        if (request.target == "/old")
            return answer(302, "", {{"Location", "/new"}, {"X-Hop", "first"}});
        return answer(200, "arrived", {{"X-Final", "yes"}});
    });
    HttpClient client;
    const HttpClientResult result = client.get(server.url(QStringLiteral("/old")));
    EXPECT_EQ(result.statusCode, 200);
    EXPECT_EQ(result.body, QStringLiteral("arrived"));
    EXPECT_EQ(result.headers.value(QStringLiteral("X-Final")), QStringLiteral("yes"));
    EXPECT_FALSE(result.headers.contains(QStringLiteral("X-Hop")));
}

TEST_F(HttpClientTest, BodiesAreUtf8ElseLatin1)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        if (request.target == "/latin1")
            return answer(200, QByteArray("caf\xE9 \xA3" "5"));
        if (request.target == "/utf8")
            return answer(200, QStringLiteral("caf\u00e9 \u20ac5").toUtf8());
        return answer(204, QByteArray());
    });
    HttpClient client;
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
            return answer(500, "server trouble");
        return answer(200, "fresh content\n");
    });
    HttpClient client;
    const QString dir = TestSupport::makeTempDir();
    const QString destination = dir + QStringLiteral("/data.txt");
    writeFile(destination, "old content");

    AppError error;
    EXPECT_FALSE(client.downloadFile(server.url(QStringLiteral("/broken")), destination, &error));
    EXPECT_EQ(error.code, 500);
    EXPECT_EQ(error.description, QStringLiteral("Server returned HTTP 500"));
    EXPECT_EQ(readFile(destination), QStringLiteral("old content"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("data.txt")});  // no leftovers

    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/file")), destination, &error));
    EXPECT_EQ(readFile(destination), QStringLiteral("fresh content\n"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("data.txt")});

    // Missing parent folders are made.
    const QString nested = dir + QStringLiteral("/a/b/c/data.txt");
    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/file")), nested, &error));
    EXPECT_EQ(readFile(nested), QStringLiteral("fresh content\n"));

    // A bare file name lands in the current folder and makes no folder.
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir));
    EXPECT_TRUE(client.downloadFile(server.url(QStringLiteral("/file")), QStringLiteral("bare.txt"), &error));
    QDir::setCurrent(previous);
    EXPECT_EQ(readFile(dir + QStringLiteral("/bare.txt")), QStringLiteral("fresh content\n"));
    EXPECT_EQ(QDir(dir).entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList{QStringLiteral("a")});

    EXPECT_FALSE(client.downloadFile(QStringLiteral("http://bad host/"), destination, &error));
    EXPECT_EQ(error.code, 1020);
    EXPECT_EQ(error.description, QStringLiteral("Malformed URL: http://bad host/"));
    EXPECT_EQ(readFile(destination), QStringLiteral("fresh content\n"));
}

TEST_F(HttpClientTest, ARequestTimesOutWhenNoDataMovesForTheTimeoutInterval)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        Response response = answer(200, "slow but steady");
        response.mode = request.target == "/silent" ? Response::Mode::NeverAnswer : Response::Mode::Dribble;
        response.dribbleDelayMs = 100;
        return response;
    });
    HttpClient client;
    client.timeoutInterval = 1.0;
    EXPECT_EQ(client.resourceTimeoutInterval(), 120.0);  // fixed when the client was made

    const auto start = std::chrono::steady_clock::now();
    const HttpClientResult silent = client.get(server.url(QStringLiteral("/silent")));
    const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_TRUE(silent.error.has_value());
    EXPECT_EQ(silent.error->description, QStringLiteral("The request timed out."));
    EXPECT_EQ(silent.statusCode, 0);
    EXPECT_FALSE(silent.success);
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
        TestHttpServer closed([](const TestHttpServer::Request &) { return answer(200, ""); });
        port = closed.port();
    }
    AppError error{QStringLiteral("untouched"), -1, QString()};
    const HttpClientResult result = HttpClient::shared().get(QStringLiteral("http://127.0.0.1:%1/").arg(port), QString(), &error);
    EXPECT_EQ(error.domain, QStringLiteral("untouched"));  // only build failures go to the cell
    ASSERT_TRUE(result.error.has_value());
    EXPECT_FALSE(result.error->description.isEmpty());
    EXPECT_EQ(result.statusCode, 0);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(QJsonDocument::fromJson(result.toJSONString().toUtf8()).object().value(QStringLiteral("error")).toString(),
              result.error->description);
}

TEST_F(HttpClientTest, TheSharedClientServesConcurrentCallers)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        Response response = answer(200, "echo " + request.target);
        response.mode = Response::Mode::Dribble;  // keeps the calls overlapping
        response.dribbleDelayMs = 5;
        return response;
    });
    EXPECT_EQ(&HttpClient::shared(), &HttpClient::shared());
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
