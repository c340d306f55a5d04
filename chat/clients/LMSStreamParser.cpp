#include "chat/clients/LMSStreamParser.h"

QList<LMSStreamEvent> LMSStreamParser::feed(QByteArrayView bytes)
{
    QList<LMSStreamEvent> events;
    if (m_finished)
        return events;
    const QString text = m_decoder(bytes);
    for (const QChar c : text) {
        if (c == QLatin1Char('\n')) {
            endLine(events);
            if (m_finished)
                break;
        } else if (c != QLatin1Char('\r')) {
            m_line.append(c);
        }
    }
    return events;
}

void LMSStreamParser::endLine(QList<LMSStreamEvent> &events)
{
    const QString line = m_line.trimmed();
    m_line.clear();
    if (!line.isEmpty()) {
        // Only data lines count: the kind of an event is read from its JSON, not "event:".
        if (line.startsWith(QLatin1String("data:"))) {
            QString value = line.mid(5);
            qsizetype start = 0;
            while (start < value.size() && (value.at(start) == QLatin1Char(' ') || value.at(start) == QLatin1Char('\t')))
                ++start;
            value = value.mid(start);
            if (!m_data.isEmpty())
                m_data.append(QLatin1Char('\n'));
            m_data.append(value);
        }
        return;
    }
    if (m_data.isEmpty())
        return;
    std::optional<LMSStreamEvent> event = LMSStreamEvent::fromFrame(m_data);
    m_data.clear();
    if (!event)
        return;
    const bool end = event->kind == LMSStreamEvent::Kind::chatEnd;
    events.append(std::move(*event));
    if (end)
        m_finished = true;
}

void LMSStreamParser::end()
{
    m_line.clear();
    m_data.clear();
}
