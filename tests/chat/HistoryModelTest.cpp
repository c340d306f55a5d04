#include "chat/appearance/HistoryModel.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

TEST(HistoryModel, BlankIgnoredTrimmedAndEqualPromptsKept)
{
    HistoryModel model;
    model.clear();
    model.add(QStringLiteral("  \n\t "));
    EXPECT_TRUE(model.items().isEmpty());
    model.add(QStringLiteral("  list the tools \n"));
    model.add(QStringLiteral("list the tools"));
    ASSERT_EQ(model.items().size(), 2);
    EXPECT_EQ(model.items()[0].prompt, QStringLiteral("list the tools"));
    EXPECT_NE(model.items()[0].id, model.items()[1].id);
}

TEST(HistoryModel, TheHundredAndFirstDropsTheOldestAndTheListIsStored)
{
    {
        HistoryModel model;
        model.clear();
        for (int k = 1; k <= 101; ++k)
            model.add(QStringLiteral("prompt %1").arg(k));
        ASSERT_EQ(model.items().size(), HistoryModel::Limit);
        EXPECT_EQ(model.items().first().prompt, QStringLiteral("prompt 2"));
        EXPECT_EQ(model.items().last().prompt, QStringLiteral("prompt 101"));
    }
    HistoryModel reread;
    ASSERT_EQ(reread.items().size(), HistoryModel::Limit);
    EXPECT_EQ(reread.items().first().prompt, QStringLiteral("prompt 2"));
}

TEST(HistoryModel, FileRoundTripSearchAndOverlongFiles)
{
    QTemporaryDir dir;
    HistoryModel model;
    model.clear();
    model.add(QStringLiteral("Read the README"));
    model.add(QStringLiteral("run tests"));
    const QString path = dir.filePath(HistoryModel::suggestedFileName());
    EXPECT_TRUE(QFileInfo(path).fileName().startsWith(QStringLiteral("history-")));
    ASSERT_FALSE(model.saveToFile(path).has_value());

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_TRUE(bytes.contains("\n    {")) << "pretty printed";
    const QJsonObject first = QJsonDocument::fromJson(bytes).array().first().toObject();
    EXPECT_EQ(first.keys(), (QStringList{QStringLiteral("id"), QStringLiteral("prompt"), QStringLiteral("timestamp")}));
    EXPECT_TRUE(first.value(QStringLiteral("timestamp")).toString().endsWith(QLatin1Char('Z')));

    const QList<HistoryItem> saved = model.items();
    model.clear();
    ASSERT_FALSE(model.loadFromFile(path).has_value());
    ASSERT_EQ(model.items().size(), 2);
    EXPECT_EQ(model.items()[1].id, saved[1].id);
    EXPECT_EQ(model.items()[1].timestamp.toSecsSinceEpoch(), saved[1].timestamp.toSecsSinceEpoch());
    EXPECT_EQ(model.search(QStringLiteral("readme")).size(), 1);

    // A file with more than the limit is kept whole until the next add.
    QList<HistoryItem> many;
    for (int k = 0; k < 120; ++k)
        many.append({QStringLiteral("ID-%1").arg(k), QStringLiteral("p%1").arg(k), QDateTime::currentDateTimeUtc()});
    QFile big(dir.filePath(QStringLiteral("big.json")));
    ASSERT_TRUE(big.open(QIODevice::WriteOnly));
    big.write(HistoryModel::encode(many));
    big.close();
    ASSERT_FALSE(model.loadFromFile(big.fileName()).has_value());
    EXPECT_EQ(model.items().size(), 120);
    model.add(QStringLiteral("one more"));
    EXPECT_EQ(model.items().size(), HistoryModel::Limit);
}

TEST(HistoryModel, BadFilesLeaveTheListAsItWas)
{
    QTemporaryDir dir;
    HistoryModel model;
    model.clear();
    model.add(QStringLiteral("keep me"));
    EXPECT_EQ(model.loadFromFile(dir.filePath(QStringLiteral("missing.json"))), QStringLiteral("Failed to load history."));
    QFile bad(dir.filePath(QStringLiteral("bad.json")));
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly));
    bad.write("[{\"id\": \"x\", \"prompt\": 3}]");
    bad.close();
    EXPECT_TRUE(model.loadFromFile(bad.fileName()).has_value());
    EXPECT_EQ(model.saveToFile(dir.filePath(QStringLiteral("no/such/dir/h.json"))),
              QStringLiteral("Failed to save history."));
    ASSERT_EQ(model.items().size(), 1);
    EXPECT_EQ(model.items()[0].prompt, QStringLiteral("keep me"));
}

} // namespace
