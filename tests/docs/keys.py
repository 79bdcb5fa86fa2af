"""The keys of the configuration are the same in the record, the validator, the writer and the
manual, and each of them survives a save."""

from tree import expect_same, found, part, run_velun, text_of

# A value for each kind of key, none of them a default, by what the validator says the key takes.
_other_values = {
    "off, watch or protect": "protect",
    "a directory path": "/elsewhere",
    "a URL": "https",
    "a port number": "9999",
    "true or false": "false",
    "a list, e.g. [claude-desktop, chatgpt]": "[one, two]",
}

# Keys that mean nothing, and are not written, without another one.
_needed_by = {"intercept_port": "intercept_apps: [one]\n"}


def _fields():
    """The fields of the record, each with its default."""
    record = part(text_of("config/config.h"), r"^struct Config \{$", r"^\};", "config/config.h")
    return found(r"^  [a-z:<>]+ ([a-z_]+)(?: = (.*?))?;", record, "config/config.h")


def field_names():
    return [name for name, _ in _fields()]


def _table():
    """The rows of the validator's table, each with what it takes."""
    where = "config/validator.cc"
    table = part(text_of(where), r"^constexpr KnownKey KNOWN_KEYS\[\] = \{$", r"^\};", where)
    return found(r'\{"([^"]+)", "([^"]+)", [^}]+\}', table, where)


def _manual_items():
    """The text of each key in velun.yaml(5)."""
    section = part(text_of("man/velun.yaml.5.in"), r"^\.Sh KEYS$", r"^\.Sh ", "velun.yaml(5)")
    return dict(found(r"^\.It Ic ([a-z_]+)\n([\s\S]*?)(?=^\.(?:It|El))", section, "velun.yaml(5)"))


def _manual_default(item):
    return found(r"^Default:(?: |\n\.Cm )([a-z0-9]+)", item, "velun.yaml(5)")[0]


def _line(key, takes):
    assert takes in _other_values, f"no value here for {key}, which takes {takes}"
    return f"{key}: {_other_values[takes]}\n"


def _keys_shown(build, config):
    return found(r"^([a-z_]+): ", run_velun(build, "config", config=config).split("\n\n")[1],
                 "velun config")


def the_validator_knows_the_fields_of_the_record(build):
    expect_same(field_names(), "Config", [key for key, _ in _table()], "KNOWN_KEYS")


def every_key_of_the_validator_is_written_back(build):
    for key, takes in _table():
        line = _line(key, takes)
        shown = run_velun(build, "config", config=_needed_by.get(key, "") + line)
        assert f"\n{line}" in shown, f"not in what a save writes: {line}{shown}"


def the_writer_keeps_the_order_of_the_record(build):
    # All but the one that excludes another.
    rows = [(key, takes) for key, takes in _table() if key != "endpoint_url"]
    config = "".join(_line(key, takes) for key, takes in reversed(rows))
    expect_same([key for key, _ in rows], "KNOWN_KEYS", _keys_shown(build, config), "velun config")


def the_manual_explains_the_fields_of_the_record(build):
    expect_same(field_names(), "Config", _manual_items(), "KEYS of velun.yaml(5)")


def the_manual_names_the_defaults_of_the_record(build):
    defaults = [f"{name}: {default.strip(chr(34)) or 'none'}" for name, default in _fields()]
    named = [f"{key}: {_manual_default(item)}" for key, item in _manual_items().items()]
    expect_same(defaults, "Config", named, "KEYS of velun.yaml(5)")


def the_example_of_the_manual_is_valid_and_complete(build):
    text = text_of("man/velun.yaml.5.in")
    example = part(text, r"^\.Bd -literal -offset indent\n", r"^\.Ed", "velun.yaml(5)")
    keys = found(r"^([a-z_]+): ", example, "EXAMPLES of velun.yaml(5)")
    expected = [name for name in field_names() if name != "endpoint_url"]
    expect_same(expected, "Config", keys, "EXAMPLES of velun.yaml(5)")
    expect_same(expected, "Config", _keys_shown(build, example), "velun config")


def the_help_names_the_fields_of_the_record(build):
    keys = found(r"^  ([a-z_]+): ", run_velun(build, "help", "config"), "velun help config")
    expect_same(field_names(), "Config", keys, "velun help config")


def the_tests_compare_the_fields_of_the_record(build):
    keys = found(r'"(?:\\n)?([a-z_]+)="', text_of("tests/support/config_text.h"), "fields_of")
    expect_same(field_names(), "Config", keys, "fields_of")
