// Fetch JSON: gets a URL over HTTP and summarises the JSON it answers with, or picks one
// value out of it. Shows Kelvara.httpGet and the JSON text of its result:
//   {"success": true, "statusCode": 200, "headers": {...}, "body": "...", "error": ""}
//
// Tool "fetch_json" of Kelvara's built-in configuration: toolType "ScriptTool", execHandler
// "fetchJson". Parameters:
//   url    the address to fetch (http or https)
//   query  an object whose members are added to the URL's query (optional)
//   pick   a dotted path into the answer, such as "items.0.name" (optional)

function kindOf(value) {
    if (value === null) return 'null';
    if (Array.isArray(value)) return 'array';
    return typeof value;
}

// One line per level, at most two levels deep and ten members wide.
function describe(value, indent, depth) {
    var kind = kindOf(value);
    if (kind === 'object') {
        var keys = Object.keys(value);
        var lines = [indent + 'object with ' + keys.length + ' member' + (keys.length === 1 ? '' : 's')];
        keys.slice(0, 10).forEach(function (key) {
            var member = value[key];
            if (depth < 1 && (kindOf(member) === 'object' || kindOf(member) === 'array')) {
                lines.push(indent + '  ' + key + ':');
                lines.push(describe(member, indent + '    ', depth + 1));
            } else {
                lines.push(indent + '  ' + key + ': ' + preview(member));
            }
        });
        if (keys.length > 10) lines.push(indent + '  …');
        return lines.join('\n');
    }
    if (kind === 'array') {
        var kinds = {};
        value.forEach(function (item) { kinds[kindOf(item)] = true; });
        return indent + 'array of ' + value.length + ' item' + (value.length === 1 ? '' : 's') +
            (value.length > 0 ? ' (' + Object.keys(kinds).join(', ') + ')' : '');
    }
    return indent + preview(value);
}

function preview(value) {
    var kind = kindOf(value);
    if (kind === 'object') return '{' + Object.keys(value).length + ' members}';
    if (kind === 'array') return '[' + value.length + ' items]';
    var text = JSON.stringify(value);
    return text.length > 60 ? text.slice(0, 57) + '...' : text;
}

// Header names come as the server wrote them.
function header(headers, name) {
    var wanted = name.toLowerCase();
    var key = Object.keys(headers || {}).filter(function (k) { return k.toLowerCase() === wanted; })[0];
    return key === undefined ? '' : headers[key];
}

function pick(value, path) {
    return path.split('.').reduce(function (current, key) {
        if (current === null || typeof current !== 'object' || !(key in current)) {
            throw new Error("The answer has nothing at '" + path + "'.");
        }
        return current[key];
    }, value);
}

// A failure that keeps its metadata (a thrown error would lose it). Tool.dispatch takes an
// object with a string `text` as the whole result.
function failure(message, metadata) {
    return { text: message, error: message, success: false, metadata: metadata };
}

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        fetchJson: function (params) {
            if (typeof params.url !== 'string' || params.url.trim() === '') {
                throw new Error("Give the 'url' to fetch.");
            }
            var url = params.url.trim();
            var query = params.query && typeof params.query === 'object' ? JSON.stringify(params.query) : undefined;
            var response = JSON.parse(Kelvara.httpGet(url, query));
            var meta = { status_code: response.statusCode, content_type: header(response.headers, 'Content-Type') };
            if (!response.success) {
                var why = response.error !== '' ? response.error : 'HTTP ' + response.statusCode;
                return failure('Fetching ' + url + ' failed: ' + why, meta);
            }
            var value;
            try {
                value = JSON.parse(response.body);
            } catch (error) {
                return failure('The answer of ' + url + ' is no JSON: ' + error.message, meta);
            }
            meta.kind = kindOf(value);
            if (typeof params.pick === 'string' && params.pick !== '') {
                var picked = pick(value, params.pick);
                meta.value = picked;
                return { text: typeof picked === 'string' ? picked : JSON.stringify(picked, null, 2), metadata: meta };
            }
            if (meta.kind === 'object') meta.keys = Object.keys(value);
            if (meta.kind === 'array') meta.length = value.length;
            return { text: 'HTTP ' + response.statusCode + ' from ' + url + '\n' + describe(value, '', 0), metadata: meta };
        }
    }, sid, handlerName, jsonParams);
}
