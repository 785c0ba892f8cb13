"""Shell completion as cmake --install leaves it, in bash, zsh and fish."""

import os
import pty
import select
import subprocess
import tempfile
import unittest

from command_line_test import COMMON, TAKES
from world import World

VARIABLES = [
    "NDK_PATH", "NDK_DEFAULT_SEARCH_PATH_LINUX", "NDK_SUPPORTED_VERSIONS",
    "NDK_INTEGRATION_ENABLED", "NDK_COMPONENT_PATTERNS", "VORN_INSTALL_DIR",
]
SETTINGS = {name + "=" for name in VARIABLES}
TREE = {"a.toml": "", "note.txt": "", "dir/": ""}
FILES, DIRS, TOMLS = {"a.toml", "note.txt", "dir/"}, {"dir/"}, {"a.toml", "dir/"}
# What a command line that ends at the cursor can go on with.
CASES = [
    ("", set(TAKES)),
    ("-v --log note.txt ", set(TAKES)),
    ("-", COMMON),
    *((f"{command} -", COMMON | {one for one in takes if one.startswith("-")})
      for command, takes in TAKES.items()),
    ("ch", {"check", "check-host"}),
    ("find --pr", {"--project", "--prerelease"}),
    *((f"{command} ", TOMLS) for command in ["install", "undo", "-q status", "verify"]),
    *((f"{command} a.toml ", set()) for command in ["install", "undo"]),
    ("install -v --json ", TOMLS), ("find --log note.txt --al", {"--all"}),
    ("check ", DIRS), ("release ", set()), ("find ", set()), ("check-host ", set()),
    *((f"{options} ", FILES)
      for options in ["--log", "find --plugin", "find --lock", "find --locked",
                      "check-host --library", "check-host --program", "undo a.toml --force"]),
    *((f"{options} ", DIRS)
      for options in ["find --search", "find --project", "install --ndk", "verify --ndk",
                      "verify --keep"]),
    *((f"{command} a.toml --set ", SETTINGS) for command in ["install", "undo", "status", "verify"]),
    ("install --set VO", {"VORN_INSTALL_DIR="}),
    ("find --supported ", set()), ("find --format ", set()),
]

BASH = """\
. /usr/share/bash-completion/bash_completion
_completion_loader ndk-integrate
compopt() { :; }
while read -r line; do
  COMP_LINE=$line.
  COMP_LINE=${COMP_LINE%.} COMP_POINT=${#COMP_LINE}
  read -ra COMP_WORDS <<< "$COMP_LINE"
  [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMPREPLY=()
  _ndk_integrate ndk-integrate "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  for one in "${COMPREPLY[@]}"; do
    [[ ! -d $one ]] || one+=/
    printf '%s\\n' "$one"
  done
  echo ---
done
"""
# The newer of fish also names what only holds the letters somewhere.
FISH = """\
while read -l line
    set -l word (string split ' ' -- "$line")[-1]
    complete -C "$line" | string replace -r '\\t.*' '' | string match -- "$word*"
    echo ---
end
"""
# Writes down the matches that are added, and where a name is a directory's, marks it.
ZSH = """\
fpath=("$SITE_FUNCTIONS" $fpath)
autoload -U compinit && compinit -u -D
compadd() {
  local -a matches behind
  if [[ " $* " != *' -'(O|A|D)' '* ]]; then
    builtin compadd -O matches "$@"
    zparseopts -D -E -a behind S:
    for match in $matches; do
      [[ $behind[1] == -S && $behind[2] == '=' ]] && match+== || [[ ! -d $match ]] || match+=/
      print -r -- $match >>"$FOUND"
    done
  fi
  builtin compadd "$@"
}
complete_line() {
  CURSOR=$#BUFFER
  zle list-choices
  print -- --- >>"$FOUND"
  BUFFER=
}
zle -N complete_line
bindkey '^T' complete_line
PS1=ready LISTMAX=9999
"""


def offered(line, text):
    """The names in the text. Options do not count where none is begun; zsh offers them there too."""
    return {one for one in text.split() if not (line.endswith(" ") and one.startswith("-"))}


class Completion(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        os.umask(0o022)
        cls.top = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="completion_test."))
        cls.share = os.path.join(cls.top, "prefix", "share")
        environment = {name: value for name, value in os.environ.items() if name != "DESTDIR"}
        install = ["cmake", "--install", os.environ["BUILD_DIR"], "--prefix", f"{cls.top}/prefix"]
        subprocess.run(install, env=environment, stdout=subprocess.DEVNULL, check=True)
        # Nothing of the user who runs this, and the prefix as one where the shell looks.
        data = f"{cls.share}:/usr/local/share:/usr/share"
        path = f"{cls.top}/prefix/bin:" + os.environ["PATH"]
        home = {"PATH": path, "HOME": cls.top, "XDG_DATA_DIRS": data, "XDG_CONFIG_HOME": cls.top, "LC_ALL": "C"}
        cls.environment = {**environment, **home, "TERM": "dumb"}
        cls.world = cls.enterClassContext(World(TREE))

    def assert_completes(self, complete):
        lines = ["ndk-integrate " + line for line, _ in CASES]
        found = complete(lines).split("---\n")[: len(lines)]
        self.assertEqual(
            {line: offered(line, text) for line, text in zip(lines, found, strict=True)},
            {"ndk-integrate " + line: expected for line, expected in CASES},
        )

    def run_shell(self, *command, lines):
        done = subprocess.run(
            command, input="".join(line + "\n" for line in lines), cwd=self.world.dir,
            env=self.environment, capture_output=True, text=True, check=False,
        )
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_bash(self):
        script = BASH.replace("read -r line", "IFS= read -r line")
        self.assert_completes(lambda lines: self.run_shell("bash", "-c", script, lines=lines))

    def test_fish(self):
        self.assert_completes(lambda lines: self.run_shell("fish", "-c", FISH, lines=lines))

    def test_zsh(self):
        self.assert_completes(self.complete_in_zsh)

    def complete_in_zsh(self, lines):
        """zsh completes only at a terminal."""
        found = os.path.join(self.top, "found")
        with open(os.path.join(self.top, ".zshrc"), "w", encoding="utf-8") as file:
            file.write(ZSH)
        functions = os.path.join(self.share, "zsh", "site-functions")
        more = {"FOUND": found, "SITE_FUNCTIONS": functions, "ZDOTDIR": self.top}
        ours, terminal = pty.openpty()
        zsh = subprocess.Popen(
            ["zsh", "-i"], cwd=self.world.dir, env={**self.environment, **more},
            stdin=terminal, stdout=terminal, stderr=terminal, start_new_session=True,
        )
        os.close(terminal)
        with zsh:
            self.read_until(ours, b"ready")
            os.write(ours, "".join([line + "\x14" for line in lines] + ["exit\n"]).encode())
            self.read_until(ours)
            os.close(ours)
        with open(found, encoding="utf-8") as file:
            return file.read()

    def read_until(self, terminal, end=None):
        """Reads up to `end`, or to the end of the shell."""
        printed = b""
        while end is None or end not in printed:
            ready, _, _ = select.select([terminal], [], [], 60)
            self.assertTrue(ready, printed)
            try:
                printed += os.read(terminal, 4096)
            except OSError:  # the shell has ended
                return


if __name__ == "__main__":
    unittest.main()
