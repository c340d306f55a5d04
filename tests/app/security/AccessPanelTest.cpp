#include "app/security/AccessPanel.h"
#include "app/security/OpenPanelPresenter.h"
#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tools/security/BookmarkController.h"

#include <gtest/gtest.h>

#include <QDir>
#include <memory>

namespace {

QUrl fileUrl(const QString &path) { return QUrl::fromLocalFile(path); }

class AnsweringPanel : public OpenPanelPresenter {
public:
    void present(const OpenPanelRequest &request, std::function<void(const QUrl &)> completion) override
    {
        requests.append(request);
        completion(answer);
    }
    QList<OpenPanelRequest> requests;
    QUrl answer;
};

class AccessPanelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        defaults->sync();
        root = TestSupport::makeTempDir(QStringLiteral("scopes"));
        AccessPanel::setPresenter(&panel);
    }
    void TearDown() override { AccessPanel::setPresenter(nullptr); }

    QString root;
    AnsweringPanel panel;
};

}  // namespace

TEST_F(AccessPanelTest, RequestAccessStoresAndOpensTheChosenLocation)
{
    QDir().mkpath(root + "/granted");
    BookmarkController controller;
    const AccessPanel access(&controller);

    panel.answer = fileUrl(root + "/granted");
    QUrl got;
    std::optional<AppError> failure;
    access.requestAccess([&](const QUrl &url, const std::optional<AppError> &error) { got = url; failure = error; });
    EXPECT_EQ(got, panel.answer);
    EXPECT_FALSE(failure);
    EXPECT_EQ(panel.requests.last().message, QStringLiteral("Select a file and click on 'Grant Access'"));
    EXPECT_EQ(panel.requests.last().prompt, QStringLiteral("Grant Access"));
    EXPECT_EQ(panel.requests.last().directory, QDir::homePath());
    EXPECT_TRUE(controller.findBookmark(panel.answer));
    EXPECT_TRUE(controller.isAccessActive(panel.answer));

    // A location that cannot be stored reaches the callback as the error.
    panel.answer = fileUrl(root + "/vanished");
    access.requestAccess("x.js", root, "Open Script", true, false, {"js"},
                         [&](const QUrl &url, const std::optional<AppError> &error) { got = url; failure = error; });
    EXPECT_TRUE(got.isEmpty());
    EXPECT_TRUE(failure);
    EXPECT_EQ(panel.requests.last().message, QStringLiteral("Select a file and click on 'Open Script'"));
    EXPECT_EQ(panel.requests.last().directory, root);

    // Cancelling gives neither a location nor an error.
    panel.answer = QUrl();
    bool called = false;
    access.requestPluginAccess([&](const QUrl &url, const std::optional<AppError> &error) {
        called = true;
        EXPECT_TRUE(url.isEmpty());
        EXPECT_FALSE(error);
    });
    EXPECT_TRUE(called);
    EXPECT_EQ(panel.requests.last().message, QStringLiteral("Select a plugin file (.so, .bundle, or .plugin)"));
    EXPECT_FALSE(panel.requests.last().canChooseDirectories);

    AccessPanel::setPresenter(nullptr);
    access.requestAccess([&](const QUrl &, const std::optional<AppError> &error) { failure = error; });
    EXPECT_TRUE(failure);
}

// The panel may answer after the bookmarks it was to store into are gone: the answer then
// counts as cancelled instead of touching a deleted object.
TEST_F(AccessPanelTest, AnAnswerAfterTheBookmarksAreGoneIsACancel)
{
    struct LatePanel : OpenPanelPresenter {
        void present(const OpenPanelRequest &, std::function<void(const QUrl &)> completion) override
        {
            later = std::move(completion);
        }
        std::function<void(const QUrl &)> later;
    } late;
    AccessPanel::setPresenter(&late);
    auto controller = std::make_unique<BookmarkController>();
    QUrl got = fileUrl(root);
    std::optional<AppError> failure;
    AccessPanel(controller.get()).requestAccess([&](const QUrl &url, const std::optional<AppError> &error) {
        got = url;
        failure = error;
    });
    ASSERT_TRUE(late.later);
    controller.reset();
    late.later(fileUrl(root));
    EXPECT_TRUE(got.isEmpty());
    EXPECT_FALSE(failure);
}
