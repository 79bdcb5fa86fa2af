# Completions of velun(1) for fish. They ask velun for the names of the bundles, nothing else.

# True if the words between the command and the cursor are exactly the arguments.
function __velun_after
    set -l words (commandline -opc)
    set -e words[1]
    test (count $words) -eq (count $argv); and test "$words" = "$argv"
end

# The names that `velun model list` prints.
function __velun_bundles
    set -l program (commandline -opc | string replace -r '^~/' "$HOME/")[1]
    for line in (command $program model list </dev/null 2>/dev/null)
        switch $line
            case '\* *  (external path)'
            case '  *  (incomplete)' '\* *  (incomplete)'
                printf '%s\tbundle, incomplete\n' (string sub -s 3 -e -14 -- $line)
            case '  *' '\* *'
                printf '%s\tbundle\n' (string sub -s 3 -- $line)
        end
    end
end

# Offers nothing behind a ":" or "=", where fish would offer every directory.
function __velun_directories
    set -l token (commandline -ct)
    string match -qr '[:=]' -- $token; or __fish_complete_directories $token
end

complete -c velun -f

complete -c velun -n __velun_after -a setup -d 'ask for mode and detection, and write the configuration'
complete -c velun -n __velun_after -a start -d 'start the daemon with the configured settings'
complete -c velun -n __velun_after -a stop -d 'stop the daemon'
complete -c velun -n __velun_after -a restart -d 'stop, then start'
complete -c velun -n __velun_after -a status -d 'what runs, in which mode, with which engine'
complete -c velun -n __velun_after -a mode -d 'change the mode, and restart the daemon'
complete -c velun -n __velun_after -a stats -d 'requests, cost and protected entities so far'
complete -c velun -n __velun_after -a model -d 'list, fetch and use detection models'
complete -c velun -n __velun_after -a log -d 'the last requests'
complete -c velun -n __velun_after -a config -d 'the configuration in effect, and its file'
complete -c velun -n __velun_after -a help -d 'explain a topic'

for help in help --help -h
    complete -c velun -n "__velun_after $help" -a config -d 'the keys of the configuration file'
    complete -c velun -n "__velun_after $help" -a modes -d 'what off, watch and protect do'
    complete -c velun -n "__velun_after $help" -a model -d 'how to get a detection model'
    complete -c velun -n "__velun_after $help" -a ports -d 'where to point your tools'
    complete -c velun -n "__velun_after $help" -a routing -d 'how desktop applications are reached'
end

complete -c velun -n '__velun_after mode' -a off -d 'nothing runs'
complete -c velun -n '__velun_after mode' -a watch -d 'forward everything unchanged, and record it'
complete -c velun -n '__velun_after mode' -a protect -d 'replace personal data before it leaves the machine'

complete -c velun -n '__velun_after model' -a list -d 'the bundles that are there'
complete -c velun -n '__velun_after model' -a fetch -d 'download the detection model'
complete -c velun -n '__velun_after model' -a use -d 'point the configuration at a bundle'

complete -c velun -n '__velun_after model fetch' -a compact -d 'the smaller variant, where there is one'
complete -c velun -n '__velun_after model use' -a '(__velun_bundles)'
complete -c velun -n '__velun_after model use' -a '(__velun_directories)'
