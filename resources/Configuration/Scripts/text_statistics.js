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
        characters: codePoints(text),
        words: words.length,
        lines: text === '' ? 0 : text.split(/\r\n|\r|\n/).length,
        sentences: sentences(text),
        top_words: top
    };
}

// Characters as code points, without an array of them: a pair of surrogates is one.
function codePoints(text) {
    var count = text.length;
    for (var i = 0; i < text.length; i++) {
        var unit = text.charCodeAt(i);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.length) {
            var next = text.charCodeAt(i + 1);
            if (next >= 0xDC00 && next <= 0xDFFF) {
                count--;
                i++;
            }
        }
    }
    return count;
}

// Runs of text that end in '.', '!' or '?' (several of them end one sentence), counted in
// one pass: a regular expression for the same thing retries from every position of a text
// without an end, which grows with the square of its length.
function sentences(text) {
    var count = 0;
    var inSentence = false;
    for (var i = 0; i < text.length; i++) {
        var c = text.charCodeAt(i);
        if (c === 46 || c === 33 || c === 63) {
            if (inSentence) {
                count++;
                inSentence = false;
            }
        } else {
            inSentence = true;
        }
    }
    return count;
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
