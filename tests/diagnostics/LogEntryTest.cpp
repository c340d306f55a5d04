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

// The head is 1024 bytes and the tail 128; where either cut falls inside a character, that
// side falls back to 512 or 64 user-perceived characters.
TEST(LogEntryShortening, CutsCountBytesAndFallBackToCharactersInsideAMultiByteOne)
{
    const QString e = QString(QChar(0x00E9)), euro = QString(QChar(0x20AC)), pair = QStringLiteral("e\u0301");
    const struct {
        const char *what;
        QString message, head, tail;
    } cases[] = {
        // 600 two-byte characters: 1024 bytes end on a boundary (512 characters), so does the tail.
        {"two-byte characters", e.repeated(600), e.repeated(512), e.repeated(64)},
        // 1023 ASCII bytes then a three-byte character: byte 1024 cuts it; the tail is clean.
        {"head cut", QString(1023, u'x') + euro + QString(200, u'y'), QString(512, u'x'), QString(128, u'y')},
        // The last 128 bytes begin on the last byte of the euro sign.
        {"tail cut", QString(2000, u'a') + euro + QString(127, u'b'), QString(1024, u'a'), QString(64, u'b')},
        // "e" + combining acute is one character of three bytes; 341 of them fill 1023 bytes.
        {"combining characters", pair.repeated(341) + e + QString(300, u'r'),
         pair.repeated(341) + e + QString(170, u'r'), QString(128, u'r')},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const LogEntry entry = LogEntry::make(c.message, 0, MCPLogMessageType::Info);
        ASSERT_TRUE(entry.wasTruncated);
        EXPECT_EQ(entry.truncatedMessage, c.head + LogEntry::truncationMarker + c.tail);
    }
}

TEST(LogEntryLabels, FiveLevelsAndAnythingElse)
{
    const std::pair<int, const char *> labels[] = {{int(MCPLogMessageType::Critical), "[E]"},
        {int(MCPLogMessageType::Error), "[E]"}, {int(MCPLogMessageType::Warning), "[W]"},
        {int(MCPLogMessageType::Info), "[I]"}, {int(MCPLogMessageType::Debug), "[D]"}, {7, "[S]"}, {-1, "[S]"}};
    for (const auto &[level, label] : labels)
        EXPECT_EQ(mcpLogLabel(static_cast<MCPLogMessageType>(level)), QLatin1String(label)) << level;

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
    for (int code : {0, -1}) {
        entry.code = code;
        EXPECT_EQ(entry.exportLine(), QStringLiteral("07:08:09.012 [E] two\nlines")) << code;
    }
}

}  // namespace
