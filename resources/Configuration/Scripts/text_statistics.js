// Text statistics: counts the characters, words, lines and sentences of a text, and names
// the words used most. The text comes as the parameter `text`, or is read from the file
// named by `file_path`.
//
// Tool "text_statistics" of Kelvara's built-in configuration: toolType "ScriptTool",
// execHandler "textStatistics".

var STOP_WORDS = ['a', 'an', 'and', 'are', 'as', 'at', 'be', 'by', 'for', 'from', 'in', 'is', 'it',
                  'of', 'on', 'or', 'that', 'the', 'this', 'to', 'was', 'with'];

function statistics(text) {
    var words = text.match(/[\p{L}\p{N}'’-]+/gu) || [];
    var counts = {};
    words.forEach(function (word) {
        var key = word.toLowerCase();
        if (STOP_WORDS.indexOf(key) < 0) {
            counts[key] = (counts[key] || 0) + 1;
        }
    });
    var top = Object.keys(counts)
        .sort(function (a, b) { return counts[b] - counts[a] || (a < b ? -1 : a > b ? 1 : 0); })
        .slice(0, 5)
        .map(function (word) { return { word: word, count: counts[word] }; });
    return {
        characters: Array.from(text).length,
        words: words.length,
        lines: text === '' ? 0 : text.split(/\r\n|\r|\n/).length,
        sentences: (text.match(/[^.!?]+[.!?]+/g) || []).length,
        top_words: top
    };
}

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        textStatistics: function (params) {
            var text = params.text;
            if (typeof text !== 'string' && typeof params.file_path === 'string' && params.file_path.trim() !== '') {
                text = Kelvara.readFile(params.file_path.trim());
                if (typeof text !== 'string') {
                    throw new Error("The file '" + params.file_path.trim() + "' cannot be read.");
                }
            }
            if (typeof text !== 'string') {
                throw new Error("Give the text as 'text', or a file as 'file_path'.");
            }
            var stats = statistics(text);
            var summary = stats.words + ' words, ' + stats.sentences + ' sentences, ' + stats.lines +
                ' lines, ' + stats.characters + ' characters';
            if (stats.top_words.length > 0) {
                summary += '. Most used: ' + stats.top_words.map(function (t) {
                    return t.word + ' (' + t.count + ')';
                }).join(', ');
            }
            return { text: summary, metadata: stats };
        }
    }, sid, handlerName, jsonParams);
}
