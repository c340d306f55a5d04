#include "diagnostics/LogEntry.h"

#include <gtest/gtest.h>

namespace {

TEST(LogEntryShortening, KeepsUpTo1024BytesAndShortensFrom1025)
{
    const LogEntry whole = LogEntry::make(QString(1024, QLatin1Char('a')), 0, MCPLogMessageType::Info);
    EXPECT_FALSE(whole.wasTruncated);
    EXPECT_EQ(whole.truncatedMessage, QString());
    EXPECT_EQ(whole.displayText(), whole.message);

    const QString message = QString(1000, QLatin1Char('h')) + QString(25, QLatin1Char('m'));
    const LogEntry cut = LogEntry::make(message, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(cut.wasTruncated);
    EXPECT_EQ(cut.truncatedMessage, message.left(1024) + QStringLiteral(" ...[truncated]... ") + message.right(128));
    EXPECT_EQ(cut.displayText(), cut.truncatedMessage);
    EXPECT_EQ(cut.message, message);
}

TEST(LogEntryShortening, CountsBytesNotCharacters)
{
    // 600 two-byte characters: 600 UTF-16 units but 1200 bytes.
    const QString message(600, QChar(0x00E9));
    const LogEntry entry = LogEntry::make(message, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(entry.wasTruncated);
    // 1024 bytes end on a character boundary: 512 characters; the tail is 64 characters.
    EXPECT_EQ(entry.truncatedMessage,
              QString(512, QChar(0x00E9)) + LogEntry::truncationMarker + QString(64, QChar(0x00E9)));
}

TEST(LogEntryShortening, HeadCutThroughMultiByteCharacterFallsBackTo512Characters)
{
    // 1023 ASCII bytes then a three-byte character: byte 1024 cuts it.
    const QString message = QString(1023, QLatin1Char('x')) + QChar(0x20AC) + QString(200, QLatin1Char('y'));
    const LogEntry entry = LogEntry::make(message, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(entry.wasTruncated);
    const QString expectedHead = QString(512, QLatin1Char('x'));
    const QString expectedTail = QString(128, QLatin1Char('y'));  // the tail is clean on its own
    EXPECT_EQ(entry.truncatedMessage, expectedHead + LogEntry::truncationMarker + expectedTail);
}

TEST(LogEntryShortening, TailCutThroughMultiByteCharacterFallsBackTo64Characters)
{
    // The last 128 bytes begin on the last byte of the euro sign.
    const QString message = QString(2000, QLatin1Char('a')) + QChar(0x20AC) + QString(127, QLatin1Char('b'));
    const LogEntry entry = LogEntry::make(message, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(entry.wasTruncated);
    EXPECT_EQ(entry.truncatedMessage,
              QString(1024, QLatin1Char('a')) + LogEntry::truncationMarker + QString(64, QLatin1Char('b')));
}

TEST(LogEntryShortening, FallbackCountsUserPerceivedCharacters)
{
    // "e" + combining acute: one character, two UTF-16 units, three bytes. 341 of them
    // fill 1023 bytes; the two-byte character after them is cut by byte 1024.
    const QString pair = QStringLiteral("e\u0301");
    const QString message = pair.repeated(341) + QChar(0x00E9) + QString(300, QLatin1Char('r'));
    const LogEntry entry = LogEntry::make(message, 0, MCPLogMessageType::Info);
    ASSERT_TRUE(entry.wasTruncated);
    const QString head = pair.repeated(341) + QChar(0x00E9) + QString(170, QLatin1Char('r'));
    EXPECT_EQ(entry.truncatedMessage, head + LogEntry::truncationMarker + QString(128, QLatin1Char('r')));
}

TEST(LogEntryLabels, FiveLevelsAndAnythingElse)
{
    EXPECT_EQ(mcpLogLabel(MCPLogMessageType::Critical), QStringLiteral("[E]"));
    EXPECT_EQ(mcpLogLabel(MCPLogMessageType::Error), QStringLiteral("[E]"));
    EXPECT_EQ(mcpLogLabel(MCPLogMessageType::Warning), QStringLiteral("[W]"));
    EXPECT_EQ(mcpLogLabel(MCPLogMessageType::Info), QStringLiteral("[I]"));
    EXPECT_EQ(mcpLogLabel(MCPLogMessageType::Debug), QStringLiteral("[D]"));
    EXPECT_EQ(mcpLogLabel(static_cast<MCPLogMessageType>(7)), QStringLiteral("[S]"));
    EXPECT_EQ(mcpLogLabel(static_cast<MCPLogMessageType>(-1)), QStringLiteral("[S]"));

    EXPECT_EQ(mcpLogMessageTypeFromWord(QStringLiteral("DEBUG")), MCPLogMessageType::Debug);
    EXPECT_EQ(mcpLogMessageTypeFromWord(QStringLiteral("Error")), MCPLogMessageType::Error);
    EXPECT_EQ(mcpLogMessageTypeFromWord(QStringLiteral("warning")), MCPLogMessageType::Warning);
    EXPECT_EQ(mcpLogMessageTypeFromWord(QStringLiteral("warn")), MCPLogMessageType::Info);
}

TEST(LogEntryExport, CodeShowsOnlyFromOne)
{
    const QDateTime when(QDate(2024, 5, 6), QTime(7, 8, 9, 12));
    LogEntry entry = LogEntry::make(QStringLiteral("two\nlines"), 3001, MCPLogMessageType::Error, when);
    EXPECT_EQ(entry.formattedTimestamp, QStringLiteral("07:08:09.012"));
    EXPECT_EQ(entry.exportLine(), QStringLiteral("07:08:09.012 [E] [3001] two\nlines"));
    entry.code = 0;
    EXPECT_EQ(entry.exportLine(), QStringLiteral("07:08:09.012 [E] two\nlines"));
    entry.code = -1;
    EXPECT_EQ(entry.exportLine(), QStringLiteral("07:08:09.012 [E] two\nlines"));
}

}  // namespace
