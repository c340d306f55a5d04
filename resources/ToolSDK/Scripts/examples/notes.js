// Scratch notes: keeps short text notes as files in a folder. Shows the file methods of the
// host object at work: getDocumentsPath, createDirectory, saveFile, fileExists,
// listDirectory, readFile and deleteFile.
//
// Tool "notes" of Kelvara's built-in configuration: toolType "ScriptTool", execHandler
// "notes". Parameters:
//   action  "add", "list", "read" or "delete" (default "list")
//   note    the note's name; it names the file "<note>.txt"
//   text    the note's text, for "add" (an existing note of that name is replaced)
//   folder  where the notes live (default: "Kelvara Notes" in the documents folder)
// (Not "name" or "title": Kelvara adds those keys, with the tool's own values, to the
// parameters of every call.)

function notesFolder(params) {
    if (typeof params.folder === 'string' && params.folder.trim() !== '') {
        return params.folder.trim();
    }
    return Path.join(Kelvara.getDocumentsPath(), 'Kelvara Notes');
}

// A note's name becomes a file name: letters, digits, blanks, dots, dashes and underscores stay,
// anything else turns into "_", and the name can't start with a dot (no hidden notes).
function noteFile(folder, note) {
    var name = String(note === undefined ? '' : note).trim()
        .replace(/[^\p{L}\p{N} ._-]+/gu, '_')
        .replace(/^\.+/, '');
    if (name === '') {
        throw new Error("Give the note's name as 'note'.");
    }
    return Path.join(folder, name + '.txt');
}

function listNotes(folder) {
    if (!Kelvara.fileExists(folder)) {
        return [];
    }
    // listDirectory gives hidden entries too, unsorted.
    return Kelvara.listDirectory(folder)
        .filter(function (name) { return name.charAt(0) !== '.' && Path.extname(name) === '.txt'; })
        .map(function (name) { return Path.basename(name, '.txt'); })
        .sort(function (a, b) { return a.localeCompare(b); });
}

var actions = {
    add: function (params, folder) {
        if (typeof params.text !== 'string') {
            throw new Error("Give the note's 'text'.");
        }
        var file = noteFile(folder, params.note);
        if (!Kelvara.createDirectory(folder)) {
            throw new Error("The folder '" + folder + "' can't be created.");
        }
        if (!Kelvara.saveFile(file, params.text)) {
            throw new Error("The note can't be saved to '" + file + "'.");
        }
        return { text: "Saved the note '" + Path.basename(file, '.txt') + "'.", metadata: { path: file } };
    },

    list: function (params, folder) {
        var notes = listNotes(folder);
        var text = notes.length === 0 ? 'No notes in ' + folder + '.'
            : notes.length + ' note' + (notes.length === 1 ? '' : 's') + ' in ' + folder + ':\n' +
              notes.map(function (note) { return '- ' + note; }).join('\n');
        return { text: text, metadata: { path: folder, notes: notes, count: notes.length } };
    },

    read: function (params, folder) {
        var file = noteFile(folder, params.note);
        var text = Kelvara.readFile(file);
        if (typeof text !== 'string') {
            throw new Error("There is no note '" + Path.basename(file, '.txt') + "'.");
        }
        return { text: text, metadata: { path: file } };
    },

    delete: function (params, folder) {
        var file = noteFile(folder, params.note);
        if (!Kelvara.fileExists(file)) {
            throw new Error("There is no note '" + Path.basename(file, '.txt') + "'.");
        }
        if (!Kelvara.deleteFile(file)) {
            throw new Error("The note '" + Path.basename(file, '.txt') + "' can't be deleted.");
        }
        return { text: "Deleted the note '" + Path.basename(file, '.txt') + "'.", metadata: { path: file } };
    }
};

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        notes: function (params) {
            var action = typeof params.action === 'string' && params.action !== '' ? params.action : 'list';
            if (!Object.prototype.hasOwnProperty.call(actions, action)) {
                throw new Error("Unknown action '" + action + "': use add, list, read or delete.");
            }
            return actions[action](params, notesFolder(params));
        }
    }, sid, handlerName, jsonParams);
}
