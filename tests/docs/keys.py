"""The keys of the configuration are the same in velun and in its manual. The stand-in takes the
flags for all of them."""

import os
import pathlib
import re
import socket
import subprocess
import tempfile

from tree import expect_same, found, part, run_velun, text_of

# A value for each key, none of them its default.
_values = {
    "mode": "protect",
    "model_dir": "/",
    "endpoint_url": "https",
    "anthropic_port": "9900",
    "openai_port": "9901",
    "control_port": "9902",
    "state_dir": "state",
    "names": "false",
    "intercept_apps": "[one, two]",
    "intercept_port": "9903",
}
_list = "tests/docs/keys.py"

# The two exclude each other, so one of them is left out of a configuration.
_engines = ("model_dir", "endpoint_url")


def _lines(keys):
    return [f"{key}: {_values[key]}" for key in keys]


def _without(*left_out):
    return [key for key in _values if key not in left_out]


def _printed(build, lines):
    """The keys and values that velun prints for the lines of a configuration."""
    try:
        text = run_velun(build, "config", config="\n".join(lines) + "\n").split("\n\n")[1]
    except AssertionError as refusal:
        raise AssertionError(f"config/validator.cc refuses a line: {refusal}") from None
    return found(r"^([a-z_]+): (.*)$", text, "velun config")


def _manual(section):
    return part(text_of("man/velun.yaml.5.in"), rf"^\.Sh {section}$", r"^\.Sh ", "velun.yaml(5)")


def the_help_names_the_keys(build):
    keys = found(r"^  ([a-z_]+): ", run_velun(build, "help", "config"), "velun help config")
    expect_same(list(_values), _list, keys, "cli/help.cc: config")


def each_key_is_read_and_written_back_in_the_order_of_the_list(build):
    for engine in _engines:
        lines = _lines(_without(engine))
        printed = [f"{key}: {value}" for key, value in _printed(build, reversed(lines))]
        expect_same(lines, _list, printed, "config/validator.cc and config/writer.cc")


def the_manual_explains_the_keys_and_names_their_defaults(build):
    printed = dict(_printed(build, ["intercept_apps: [one]"]))
    printed["intercept_apps"] = "none"
    expected = [f"{key}: {printed.get(key, 'none')}" for key in _values]
    items = found(r"^\.It Ic ([a-z_]+)\n([\s\S]*?)(?=^\.(?:It|El))", _manual("KEYS"), "KEYS")
    named = [f"{key}: {default}" for key, text in items
             for default in re.findall(r"^Default:(?: |\n\.Cm )([a-z0-9]+)", text, re.MULTILINE)]
    expect_same(expected, _list + " and velun config", named, "man/velun.yaml.5.in: KEYS")


def the_example_of_the_manual_is_valid_and_complete(build):
    lines = found(r"^([a-z_]+: .*)$", _manual("EXAMPLES"), "EXAMPLES")
    printed = [key for key, _ in _printed(build, lines)]
    expect_same(_without("endpoint_url"), _list, [line.split(":")[0] for line in lines],
                "man/velun.yaml.5.in: EXAMPLES")
    expect_same(_without("endpoint_url"), _list, printed, "velun config")


def the_stand_in_takes_the_flags_of_all_keys(build):
    # `names` is false in the list and gives no flag. Its default gives one.
    for keys in (_without("endpoint_url"), _without("model_dir", "names")):
        printed = _start_and_stop(pathlib.Path(build).resolve(), _lines(keys))
        expected = r"running \(pid \d+, mode protect\)\ndashboard: http://127.0.0.1:\d+/\nstopped\n"
        assert re.fullmatch(expected, printed), (
            f"tests/standin/flags.cc: with every key set, velun start and stop print\n{printed}")


def _start_and_stop(build, lines):
    """The output of `velun start` and `velun stop` with these lines and free ports."""
    # These sockets are bound but never listen. Only the daemon takes their ports.
    keepers = [socket.socket() for line in lines if "_port: " in line]
    for keeper in keepers:
        keeper.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        keeper.bind(("127.0.0.1", 0))
    ports = iter(keepers)
    lines = [re.sub(r"(_port: ).*", lambda port: f"{port[1]}{next(ports).getsockname()[1]}", line)
             for line in lines]
    with tempfile.TemporaryDirectory() as home:
        file, output = pathlib.Path(home, "velun.yaml"), pathlib.Path(home, "output")
        file.write_text("\n".join(lines) + "\n", encoding="utf-8")
        environment = {"HOME": home, "PATH": os.defpath, "VELUN_CLI_CONFIG": file,
                       "VELUND": build / "standin/velun-standin"}
        # The daemon keeps the output open, so it is a file. tini reaps the daemon, because a
        # zombie looks alive.
        with open(output, "wb") as stream:
            script = '"$0" start; "$0" stop'
            subprocess.run(["tini", "-s", "--", "sh", "-c", script, build / "velun"], cwd=home,
                           env=environment, timeout=60, stdin=subprocess.DEVNULL, stdout=stream,
                           stderr=stream, check=False)
        return output.read_text(encoding="utf-8")
