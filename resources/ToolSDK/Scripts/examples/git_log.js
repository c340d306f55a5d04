// Git log: the latest commits of a git repository. Shows Kelvara.process running a program
// found through PATH: the executable is always taken as a path, so the script runs
// /usr/bin/env, which looks "git" up in the PATH Kelvara gives its children
// ("/usr/local/bin:/usr/bin:/bin:" and the application's own PATH).
//
// Tool "git_log" of Kelvara's built-in configuration: toolType "ScriptTool", execHandler
// "gitLog". Parameters:
//   folder  a folder inside the repository
//   count   how many commits to show (default 10, at most 100)

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        gitLog: function (params) {
            if (typeof params.folder !== 'string' || params.folder.trim() === '') {
                throw new Error("Give the repository's 'folder'.");
            }
            var folder = params.folder.trim();
            var count = Math.max(1, Math.min(100, parseInt(params.count, 10) || 10));
            var ok = Kelvara.process('/usr/bin/env',
                ['git', '-C', folder, 'log', '--max-count=' + count, '--date=short',
                 '--pretty=format:%h%x09%ad%x09%an%x09%s'],
                'gitOut', 'gitErr');
            if (!ok) {
                throw new Error('git log failed in ' + folder + ': ' +
                    (gitErr.length > 0 ? gitErr.join(' ') : 'no output'));
            }
            var commits = gitOut.map(function (line) {
                var parts = line.split('\t');
                return { hash: parts[0], date: parts[1], author: parts[2], subject: parts.slice(3).join('\t') };
            });
            var text = commits.length === 0 ? 'No commits.' : commits.map(function (c) {
                return c.hash + ' ' + c.date + ' ' + c.subject + ' (' + c.author + ')';
            }).join('\n');
            return { text: text, metadata: { commits: commits, count: commits.length } };
        }
    }, sid, handlerName, jsonParams);
}
