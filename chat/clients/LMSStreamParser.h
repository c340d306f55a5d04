#pragma once

#include "chat/clients/LMSStreamEvent.h"

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringDecoder>

// Reads an LM Studio chat stream (server-sent events) as its bytes arrive: "data:" lines are
// gathered into a frame, an empty line ends the frame, and each frame becomes an event. Only
// the current line and the current frame are held. UTF-8 is decoded with bad sequences
// repaired, also across the pieces the bytes come in. One thread at a time.
class LMSStreamParser {
public:
    // The events the bytes complete, in order. After a chat.end nothing more is read: the
    // stream is finished and further bytes give nothing.
    QList<LMSStreamEvent> feed(QByteArrayView bytes);
    // True once a chat.end ended the stream.
    bool finished() const { return m_finished; }
    // The end of the bytes: a frame still being gathered is dropped.
    void end();

private:
    void endLine(QList<LMSStreamEvent> &events);

    QStringDecoder m_decoder{QStringDecoder::Utf8};
    QString m_line;
    QString m_data;
    bool m_finished = false;
};
