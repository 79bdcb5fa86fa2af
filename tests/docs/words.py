"""The commands, topics, modes and actions of `velun model` are the same wherever they are named."""

from tree import expect_same, found, part, run_velun, text_of


def _commands():
    """The rows of the command table, without the other spellings of help."""
    table = part(text_of("cli/commands.cc"), r"^constexpr Command commands\[\] = \{$", r"^\};",
                 "cli/commands.cc")
    words = found(r'^ +\{"([^"]*)", (?:true|false),', table, "cli/commands.cc")
    return sorted(word for word in words if not word.startswith("-"))


def _topics():
    """The rows of the table of help topics, without the overview, which has no name."""
    where = "cli/help.cc"
    table = part(text_of(where), r"^constexpr Topic topics\[\] = \{$", r"^\};", where)
    return sorted(name for name in found(r'^    \{"([^"]*)",$', table, where) if name)


def _modes():
    body = part(text_of("config/config.h"), r"^inline bool is_mode\(.*$", r"^\}", "config/config.h")
    return sorted(found(r'word == "([^"]+)"', body, "config/config.h"))


def _actions():
    body = part(text_of("models/model_commands.cc"), r"^int run_model_command\(.*$", r"^\}",
                "models/model_commands.cc")
    return sorted(found(r'word == "([^"]+)"', body, "models/model_commands.cc"))


def _manual(section):
    return part(text_of("man/velun.1.in"), rf"^\.Sh {section}$", r"^\.Sh ", "man/velun.1.in")


def _manual_items(command):
    """What stands behind a command in the heads of its items."""
    return found(rf"^\.It Cm {command} (.*)$", _manual("COMMANDS"), "man/velun.1.in")


def _synopsis():
    """The command lines of the synopsis, without their macros."""
    lines = found(r"^\.(?:Op )?Cm (.*)$", _manual("SYNOPSIS"), "man/velun.1.in")
    return [line.split() for line in lines]


def _choice(text):
    """The words of "a | b | c", of "a|b|c" and of "a, b, c"."""
    return sorted(text.replace("|", " ").replace(",", " ").split())


def _offered(shell, place):
    """What the completions of a shell offer behind the word that the place names."""
    if shell == "bash":
        text, pattern = text_of("completions/velun.bash"), r"_velun_offer \"\$word\" (.*) ;;$"
        begin = {"": r"^ +'' *\)", "help": r"^ +help \|.*\)"}.get(place, rf"^ +'?{place}'? *\)")
        return sorted(found(pattern, part(text, begin, r"^    \S", shell), shell)[0].split())
    if shell == "zsh":
        text = text_of("completions/_velun")
        array = {"": "commands", "help": "topics", "mode": "modes", "model": "actions"}[place]
        body = part(text, rf"^  {array}=\($", r"^  \)", shell)
        return sorted(found(r"^ +'([^:']+):", body, shell))
    text = text_of("completions/velun.fish")
    after = {"": "__velun_after", "help": r'"__velun_after \$help"'}.get(
        place, f"'__velun_after {place}'")
    return sorted(found(rf"^ *complete -c velun -n {after} -a ([a-z]+) ", text, shell))


def _expect_offered(place, words, name):
    for shell in ("bash", "zsh", "fish"):
        expect_same(words, name, _offered(shell, place), f"completions for {shell}")


def the_general_help_names_the_commands_of_the_table(build):
    words = found(r"^  velun ([a-z]+)", run_velun(build, "help"), "velun help")
    expect_same(_commands(), "cli/commands.cc", sorted(set(words)), "velun help")


def the_general_help_names_the_topics_of_the_table(build):
    topics = found(r"Topics: (.*)$", run_velun(build, "help"), "velun help")
    expect_same(_topics(), "table of topics", _choice(topics[0]), "velun help")


def the_refusal_of_a_topic_names_the_topics_of_the_table(build):
    topics = found(r"topics: ([a-z, ]+)\\n\"", text_of("cli/help.cc"), "cli/help.cc")
    expect_same(_topics(), "table of topics", _choice(topics[0]), "refusal")


def the_help_on_modes_and_configuration_names_the_modes(build):
    heads = found(r"^([a-z]+)  ", run_velun(build, "help", "modes"), "velun help modes")
    expect_same(_modes(), "config/config.h", sorted(heads), "velun help modes")
    topic = run_velun(build, "help", "config")
    choice = found(r"^  mode: ([a-z| ]+?)  ", topic, "velun help config")
    expect_same(_modes(), "config/config.h", _choice(choice[0]), "velun help config")
    choice = found(r"^  velun mode (\S+)", run_velun(build, "help"), "velun help")
    expect_same(_modes(), "config/config.h", _choice(choice[0]), "velun help")


def the_general_help_names_actions_of_model_that_there_are(build):
    named = set(found(r"^  velun model ([a-z]+)", run_velun(build, "help"), "velun help"))
    assert named <= set(_actions()), f"no such actions of model: {sorted(named - set(_actions()))}"


def the_usage_lines_name_the_modes_and_the_actions_of_model(build):
    modes = found(r'"usage: velun mode (.*)\\n"', text_of("cli/mode.cc"), "cli/mode.cc")
    expect_same(_modes(), "config/config.h", _choice(modes[0]), "cli/mode.cc")
    source = text_of("models/model_commands.cc")
    usage = found(r'"usage: velun model \[(.*)\]\\n"', source, "usage of model")
    actions = [action.split()[0] for action in usage[0].split("|")]
    expect_same(_actions(), "run_model_command", sorted(actions), "usage of model")


def the_question_of_setup_names_the_modes(build):
    modes = found(r'"Mode \((.*)\)"', text_of("cli/setup.cc"), "cli/setup.cc")
    expect_same(_modes(), "config/config.h", sorted(modes[0].split(" / ")), "cli/setup.cc")


def the_manual_explains_the_commands_of_the_table(build):
    heads = set(found(r"^\.It Cm ([a-z]+)", _manual("COMMANDS"), "man/velun.1.in"))
    expect_same(_commands(), "cli/commands.cc", sorted(heads), "COMMANDS of velun(1)")


def the_synopsis_shows_the_commands_of_the_table(build):
    words = set()
    for line in _synopsis():
        # Either a choice of commands, or one command and what follows it.
        alternatives = len(line) > 1 and line[1] == "|"
        words.update(word for word in line if word != "|") if alternatives else words.add(line[0])
    expect_same(_commands(), "cli/commands.cc", sorted(words), "SYNOPSIS of velun(1)")


def the_synopsis_shows_the_modes_and_the_actions_of_model(build):
    lines = _synopsis()
    modes = [line[1:] for line in lines if line[0] == "mode"]
    expect_same(_modes(), "config/config.h", _choice(" ".join(modes[0])), "SYNOPSIS of velun(1)")
    actions = set()
    for line in (line for line in lines if line[0] == "model"):
        words = " ".join(line[1:]).removeprefix("Op Cm ").split(" | ")
        actions.update(word.split()[0] for word in words)
    expect_same(_actions(), "run_model_command", sorted(actions), "SYNOPSIS of velun(1)")


def the_manual_explains_the_topics_of_the_table(build):
    item = part(_manual("COMMANDS"), r"^\.It Cm help .*$", r"; *$", "man/velun.1.in")
    topics = found(r"^\.Cm ([a-z]+)", item + "\n", "topics in velun(1)")
    expect_same(_topics(), "table of topics", sorted(topics), "COMMANDS of velun(1)")


def the_manual_explains_the_modes_and_the_actions_of_model(build):
    modes = _choice(_manual_items("mode")[0])
    expect_same(_modes(), "config/config.h", modes, "COMMANDS of velun(1)")
    actions = {item.removeprefix("Op Cm ").split()[0] for item in _manual_items("model")}
    expect_same(_actions(), "run_model_command", sorted(actions), "COMMANDS of velun(1)")


def the_completions_offer_the_commands_of_the_table(build):
    _expect_offered("", _commands(), "cli/commands.cc")


def the_completions_offer_the_topics_of_the_table(build):
    _expect_offered("help", _topics(), "table of topics")


def the_completions_offer_the_modes(build):
    _expect_offered("mode", _modes(), "config/config.h")


def the_completions_offer_the_actions_of_model(build):
    _expect_offered("model", _actions(), "run_model_command")
