// Kelvara script pre-processor.
//
// Evaluated in every script tool context after `Kelvara`, `console`, `stdOut`, `stdErr`
// and `__moduleDir` exist, and before the tool script itself. It adds three globals:
//
//   require(path)  loads a sibling script (or a .json file) relative to __moduleDir
//   Path           small path helpers: join, dirname, basename, extname, resolve
//   Tool           JSON helpers for tool scripts: params, result, error, dispatch, json, parse
//
// See README.md in this folder for the details and an example.
//
// The three are made on first use: this file runs before every tool call, and a script that
// does not touch them should not pay for building them.
(function (global) {
    'use strict';

    // Defines global[name] as made by make() when first read; assigning to it (or declaring
    // it in a script) simply replaces it.
    function lazy(name, make) {
        function settle(value) {
            Object.defineProperty(global, name, { value: value, writable: true, enumerable: false, configurable: true });
            return value;
        }
        Object.defineProperty(global, name, {
            enumerable: false,
            configurable: true,
            get: function () { return settle(make()); },
            set: settle
        });
    }

    lazy('Path', makePath);
    lazy('Tool', makeTool);
    lazy('require', makeRequireModule);

    // ---- paths -------------------------------------------------------------------------

    // The path functions; require() uses them without making the global `Path`.
    function pathHelpers() {
        function normalize(path) {
            var absolute = path.charAt(0) === '/';
            var parts = [];
            path.split('/').forEach(function (part) {
                if (part === '' || part === '.') {
                    return;
                }
                if (part === '..') {
                    if (parts.length > 0 && parts[parts.length - 1] !== '..') {
                        parts.pop();
                    } else if (!absolute) {
                        parts.push('..');
                    }
                    return;
                }
                parts.push(part);
            });
            var joined = parts.join('/');
            if (absolute) {
                return '/' + joined;
            }
            return joined === '' ? '.' : joined;
        }

        function join() {
            var pieces = Array.prototype.slice.call(arguments).filter(function (piece) {
                return typeof piece === 'string' && piece !== '';
            });
            return pieces.length === 0 ? '.' : normalize(pieces.join('/'));
        }

        function dirname(path) {
            var normalized = normalize(path);
            var slash = normalized.lastIndexOf('/');
            if (slash < 0) {
                return '.';
            }
            return slash === 0 ? '/' : normalized.slice(0, slash);
        }

        function basename(path, extension) {
            var normalized = normalize(path);
            var name = normalized.slice(normalized.lastIndexOf('/') + 1);
            if (extension && name.length > extension.length && name.slice(-extension.length) === extension) {
                name = name.slice(0, -extension.length);
            }
            return name;
        }

        function extname(path) {
            var name = basename(path);
            var dot = name.lastIndexOf('.');
            return dot <= 0 ? '' : name.slice(dot);
        }

        // Resolves against a base folder; absolute pieces start over, as in a shell.
        function resolveFrom(base, pieces) {
            var result = base;
            pieces.forEach(function (piece) {
                if (typeof piece !== 'string' || piece === '') {
                    return;
                }
                result = piece.charAt(0) === '/' ? piece : result + '/' + piece;
            });
            return normalize(result);
        }

        return {
            join: join,
            dirname: dirname,
            basename: basename,
            extname: extname,
            normalize: normalize,
            resolveFrom: resolveFrom
        };
    }

    function makePath() {
        var paths = pathHelpers();
        return {
            join: paths.join,
            dirname: paths.dirname,
            basename: paths.basename,
            extname: paths.extname,
            normalize: paths.normalize,
            // Path.resolve('data', 'x.txt') is __moduleDir/data/x.txt.
            resolve: function () {
                return paths.resolveFrom(String(global.__moduleDir), Array.prototype.slice.call(arguments));
            }
        };
    }

    // ---- require -------------------------------------------------------------------------

    function makeRequireModule() {
        var paths = pathHelpers();
        var dirname = paths.dirname;
        var resolveFrom = paths.resolveFrom;

        // One cache per context, that is per tool call: every call loads its modules anew,
        // like the script itself.
        var moduleCache = {};

        function isFile(path) {
            return Kelvara.fileExists(path) && !Kelvara.fileExists(path + '/.');
        }

        function resolveModule(baseDir, request) {
            var candidate = resolveFrom(baseDir, [request]);
            var tries = /\.(js|json)$/i.test(candidate)
                ? [candidate]
                : [candidate + '.js', candidate + '.json', candidate + '/index.js', candidate];
            for (var i = 0; i < tries.length; i++) {
                if (isFile(tries[i])) {
                    return tries[i];
                }
            }
            return null;
        }

        function makeRequire(baseDir) {
            function require(request) {
                if (typeof request !== 'string' || request === '') {
                    throw new TypeError('require() needs a path, got ' + String(request));
                }
                var filename = resolveModule(baseDir, request);
                if (filename === null) {
                    throw new Error("Cannot find module '" + request + "' from '" + baseDir + "'");
                }
                var cached = moduleCache[filename];
                if (cached) {
                    // A module that is still loading (a cycle) gives what it has exported so far.
                    return cached.exports;
                }
                var source = Kelvara.readFile(filename);
                if (source === undefined) {
                    throw new Error("Cannot read module '" + filename + "'");
                }
                var module = { id: filename, filename: filename, exports: {}, loaded: false };
                moduleCache[filename] = module;
                try {
                    if (/\.json$/i.test(filename)) {
                        module.exports = JSON.parse(source);
                    } else {
                        var dir = dirname(filename);
                        var body = new Function('module', 'exports', 'require', '__moduleDir', '__filename',
                            source + '\n//# sourceURL=' + filename);
                        body.call(module.exports, module, module.exports, makeRequire(dir), dir, filename);
                    }
                } catch (error) {
                    delete moduleCache[filename];
                    throw error;
                }
                module.loaded = true;
                return module.exports;
            }
            require.resolve = function (request) {
                var filename = resolveModule(baseDir, String(request));
                if (filename === null) {
                    throw new Error("Cannot find module '" + request + "' from '" + baseDir + "'");
                }
                return filename;
            };
            require.cache = moduleCache;
            return require;
        }

        return makeRequire(String(global.__moduleDir));
    }

    // ---- tool results --------------------------------------------------------------------

    function makeTool() {
        function isPlainObject(value) {
            return value !== null && typeof value === 'object' && !Array.isArray(value);
        }

        // What Tool.text, Tool.image, ... make: an object with a string type and, for a text
        // item, a string text.
        function isContentItem(value) {
            return isPlainObject(value) && typeof value.type === 'string' &&
                (value.type !== 'text' || typeof value.text === 'string') &&
                ['text', 'image', 'audio', 'resource', 'resource_link'].indexOf(value.type) >= 0;
        }

        function messageOf(error) {
            if (error && typeof error === 'object' && 'message' in error) {
                return String(error.message);
            }
            return String(error);
        }

        var Tool = {
            // The parsed parameters of a call; {} for blank text. Text that is not a JSON
            // object is logged as a warning and also gives {}.
            params: function (jsonParams) {
                if (typeof jsonParams !== 'string' || jsonParams.trim() === '') {
                    return {};
                }
                try {
                    var value = JSON.parse(jsonParams);
                    if (isPlainObject(value)) {
                        return value;
                    }
                } catch (error) {
                    // reported below
                }
                console.warn('Tool.params: the parameters are not a JSON object: ' + jsonParams);
                return {};
            },

            // A success result: the text for people, and metadata merged into the structured
            // content for programs.
            result: function (text, metadata) {
                var result = { text: String(text), success: true, error: '' };
                if (isPlainObject(metadata)) {
                    result.metadata = metadata;
                }
                return JSON.stringify(result);
            },

            // A failure result: success false, the message as text and as error.
            error: function (message, metadata) {
                var text = messageOf(message);
                var result = { text: text, success: false, error: text };
                if (isPlainObject(metadata)) {
                    result.metadata = metadata;
                }
                return JSON.stringify(result);
            },

            // A result of content items (made by Tool.text, Tool.image, Tool.audio,
            // Tool.resource, Tool.resourceLink), in order, with metadata as for Tool.result.
            content: function (items, metadata) {
                var result = { text: '', success: true, error: '', content: items };
                if (isPlainObject(metadata)) {
                    result.metadata = metadata;
                }
                return JSON.stringify(result);
            },

            text: function (text) {
                return { type: 'text', text: String(text) };
            },

            // base64 data, e.g. from Kelvara.readFile of an image.
            image: function (base64, mimeType) {
                return { type: 'image', data: String(base64), mimeType: String(mimeType) };
            },

            audio: function (base64, mimeType) {
                return { type: 'audio', data: String(base64), mimeType: String(mimeType) };
            },

            // An embedded resource: its text, or {blob: base64} for bytes.
            resource: function (uri, content, mimeType) {
                var resource = { uri: String(uri) };
                if (mimeType !== undefined) {
                    resource.mimeType = String(mimeType);
                }
                if (isPlainObject(content) && typeof content.blob === 'string') {
                    resource.blob = content.blob;
                } else {
                    resource.text = String(content);
                }
                return { type: 'resource', resource: resource };
            },

            // A link to a resource the client may read itself.
            resourceLink: function (uri, name, description, mimeType) {
                var link = { type: 'resource_link', uri: String(uri), name: String(name) };
                if (description !== undefined) {
                    link.description = String(description);
                }
                if (mimeType !== undefined) {
                    link.mimeType = String(mimeType);
                }
                return link;
            },

            // Runs handlers[handlerName](params, sid) and makes its answer a result: a string
            // becomes the text, a content item or a list of them the result's content, an
            // object with a string `text` is taken as the result object, anything else is
            // shown as JSON. An unknown handler or a thrown error gives a
            // failure result (the error is also logged with its stack).
            dispatch: function (handlers, sid, handlerName, jsonParams) {
                var handler = handlers ? handlers[handlerName] : undefined;
                if (typeof handler !== 'function') {
                    return Tool.error("Unknown handler '" + handlerName + "'");
                }
                try {
                    var value = handler(Tool.params(jsonParams), sid);
                    if (typeof value === 'string') {
                        return Tool.result(value);
                    }
                    if (isContentItem(value)) {
                        return Tool.content([value]);
                    }
                    if (Array.isArray(value) && value.length > 0 && value.every(isContentItem)) {
                        return Tool.content(value);
                    }
                    if (isPlainObject(value) && typeof value.text === 'string') {
                        return JSON.stringify(value);
                    }
                    return Tool.result(JSON.stringify(value === undefined ? null : value, null, 2));
                } catch (error) {
                    console.error(messageOf(error) + (error && error.stack ? '\n' + error.stack : ''));
                    return Tool.error(error);
                }
            },

            // Pretty JSON text (two blanks by default).
            json: function (value, indent) {
                return JSON.stringify(value, null, indent === undefined ? 2 : indent);
            },

            // JSON.parse that gives `fallback` instead of throwing.
            parse: function (text, fallback) {
                try {
                    return JSON.parse(text);
                } catch (error) {
                    return fallback;
                }
            }
        };
        return Tool;
    }
})(this);
