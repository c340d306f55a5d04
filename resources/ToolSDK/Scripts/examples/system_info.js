// System information: the kernel, the distribution, the uptime and the free space of the
// temporary folder. Shows Kelvara.shell (whose output lands in the globals stdOut and
// stdErr) and Kelvara.process with output arrays of its own.
//
// The system's own files are read with /bin/cat: Kelvara.readFile reads only inside the
// folders granted to Kelvara (Settings > Security Scopes), and /etc and /proc are not
// granted by default.
//
// Tool "system_info" of Kelvara's built-in configuration: toolType "ScriptTool",
// execHandler "systemInfo". No parameters.

// The lines of a system file, or none.
function systemFile(path) {
    return Kelvara.process('/bin/cat', [path], 'catOut', 'catErr') ? catOut : [];
}

// key=value lines of /etc/os-release, quotes taken off.
function osRelease() {
    var fields = {};
    systemFile('/etc/os-release').forEach(function (line) {
        var match = /^([A-Z_]+)=(.*)$/.exec(line);
        if (match) fields[match[1]] = match[2].replace(/^"(.*)"$/, '$1');
    });
    return fields;
}

function uptimeSeconds() {
    var lines = systemFile('/proc/uptime');
    return lines.length > 0 ? Math.floor(parseFloat(lines[0])) : 0;
}

function duration(seconds) {
    var days = Math.floor(seconds / 86400);
    var hours = Math.floor(seconds % 86400 / 3600);
    var minutes = Math.floor(seconds % 3600 / 60);
    return (days > 0 ? days + 'd ' : '') + hours + 'h ' + minutes + 'm';
}

function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        systemInfo: function () {
            // shell runs "/bin/sh -c"; its lines come back trimmed, empty ones dropped.
            if (!Kelvara.shell('uname -srm')) {
                throw new Error('uname failed: ' + stdErr.join(' '));
            }
            var kernel = stdOut[0] || '';

            // process takes the executable as a path and names the arrays to fill.
            var temp = Kelvara.getTempPath();
            var free = '';
            if (Kelvara.process('/bin/df', ['-hP', temp], 'dfOut', 'dfErr') && dfOut.length > 1) {
                // Filesystem Size Used Avail Use% Mounted-on
                free = dfOut[1].split(/\s+/)[3] || '';
            }

            var os = osRelease();
            var uptime = uptimeSeconds();
            var lines = [
                'Kernel: ' + kernel,
                'System: ' + (os.PRETTY_NAME || os.NAME || 'unknown'),
                'Uptime: ' + duration(uptime),
                'Free in ' + temp + ': ' + (free || 'unknown')
            ];
            return {
                text: lines.join('\n'),
                metadata: {
                    kernel: kernel,
                    os_name: os.PRETTY_NAME || os.NAME || '',
                    uptime_seconds: uptime,
                    temp_path: temp,
                    temp_free: free
                }
            };
        }
    }, sid, handlerName, jsonParams);
}
