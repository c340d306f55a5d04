#pragma once

#include <QString>

// The rules for text streamed by a local model, before it joins an answer.
namespace StreamTextFilter {

// Keeps a user-perceived character only when each of its code points is ASCII or one of
// Ä Ö Ü ß ä ö ü; everything else goes without a mark.
QString filter(const QString &text);

// Cleans a filtered reasoning delta against the reasoning so far, so that the reasoning reads
// as one block without blank lines: line ends made LF, leading newlines dropped at the start
// and after a line end, runs of blank lines folded into one line end.
QString cleanReasoning(const QString &soFar, const QString &delta);

}  // namespace StreamTextFilter
