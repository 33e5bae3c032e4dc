"""The completions of bash, zsh and fish, asked as a user at the keyboard asks them. All three must give the same."""

import os
import pty
import re
import select
import shutil
import subprocess
import time

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
COMPLETIONS = os.path.join(ROOT, "completions")
PROGRAM = os.environ["QUARRY_PROGRAM"]

ANYTIME = {"-dst", "-md5", "-meta", "-raw", "-skip_sparse_clusters", "-diags", "-quiet", "-profile", "-dateformat",
           "-out"}
SOURCES = {"-image", "-partition", "-drivenum", "-vmdk"}
OBJECTS = {"-src", "-mft", "-cluster", "-pipe", "-enumdir"}
FILTERS = {"-filter", "-filter_sig", "-cmd_start_time", "-cmd_stop_time"}

# The exact mode.
LOGGED = {"-diags", "-quiet"}
CLUSTERS_TOO = {"-threads", "-dst", "-zero_unreadable", "-sparse", "-overwrite", "-sha256", "-manifest"} | LOGGED
COPIES = CLUSTERS_TOO | {"-tree", "-raw", "-keep_times", "-md5", "-letter"}
EXACT_OBJECTS = {"-src", "-mft", "-cluster", "-pipe", "-list"}
LISTINGS = LOGGED | {"-letter", "-recurse", "-deleted"}
CHOICES = {"-offset", "-ntfsvol", "-first_ntfsvol"}

# What is typed, and all that is offered for the word at the cursor.
CASES = {
    "quarry -": {"-h", "-exact"} | ANYTIME | SOURCES | OBJECTS,
    "quarry -ex": {"-exact"},
    "quarry -exact -": {"-h", "-image", "-partition", "-vmdk"} | COPIES | EXACT_OBJECTS,
    "quarry -EXACT -image disk.img -": COPIES | EXACT_OBJECTS | CHOICES | {"-volumes", "-verify_source", "-sector_size"},
    "quarry -image disk.img -exact -": COPIES | EXACT_OBJECTS | CHOICES | {"-volumes", "-verify_source", "-sector_size"},
    "quarry -exact -image disk.E01 -verify_source -": LOGGED | {"-threads"},
    "quarry -exact -partition /dev/sdb1 -": COPIES | EXACT_OBJECTS,
    "quarry -exact -vmdk base.vmdk -": COPIES | EXACT_OBJECTS | CHOICES | {"-vmdk", "-volumes", "-sector_size"},
    "quarry -exact -image disk.img -offset 512 -": COPIES | EXACT_OBJECTS,
    "quarry -exact -image disk.img -ntfsvol 2 -": COPIES | EXACT_OBJECTS | {"-sector_size"},
    "quarry -exact -image disk.img -volumes -": LOGGED | {"-sector_size"},
    "quarry -exact -image disk.img -sector_size 4096 -":
        COPIES | EXACT_OBJECTS | {"-ntfsvol", "-first_ntfsvol", "-volumes"},
    "quarry -exact -image disk.img -src /a -": COPIES | CHOICES | {"-mft", "-sector_size"},
    "quarry -exact -image disk.img -mft 5 -": COPIES | CHOICES | {"-src", "-sector_size"},
    "quarry -exact -image disk.img -cluster 5 -": CLUSTERS_TOO | CHOICES | {"-sector_size"},
    "quarry -exact -image disk.img -pipe -": COPIES | CHOICES | {"-sector_size"},
    "quarry -exact -partition /dev/sdb1 -sparse -md5 -": (COPIES - {"-sparse", "-md5"}) | {"-src", "-mft", "-pipe"},
    "quarry -exact -partition /dev/sdb1 -pipe -manifest m -s": {"-source_sha256", "-sparse", "-sha256"},
    "quarry -exact -image disk.img -manifest m -v": set(),
    "quarry -exact -partition /dev/sdb1 -manifest m -r": {"-raw", "-resume"},
    "quarry -exact -partition /dev/sdb1 -manifest m -md5 -r": {"-raw"},
    "quarry -exact -partition /dev/sdb1 -manifest m -resume -m": {"-mft"},
    "quarry -exact -partition /dev/sdb1 -letter C -l": {"-letter", "-list"},
    "quarry -exact -image disk.img -list / -": LISTINGS | CHOICES | {"-sector_size"},
    "quarry -exact -partition /dev/sdb1 -list / -": LISTINGS,
    "quarry -exact -partition /dev/sdb1 -list / -recurse -": LISTINGS - {"-recurse", "-deleted"},
    "quarry -exact -partition /dev/sdb1 -deleted -list / -": LISTINGS - {"-recurse", "-deleted"},
    "quarry -exact -list ": set(),
    "quarry -exact -image ": {"base.vmdk", "disk.img", "folder/"},
    "quarry -exact -image disk.img -dst fol": {"folder/"},
    "quarry -exact -image disk.img -sector_size ": {"512", "1024", "2048", "4096"},
    "quarry -exact -image disk.img -ntfsvol ": set(),
    "quarry -exact -letter ": set(),
    "quarry -exact -threads ": set(),
    "quarry -exact -threads 2 -l": {"-letter"},
    "quarry -im": {"-image"},
    "quarry -md5 -m": {"-meta", "-mft"},
    "quarry -image disk.img -": ANYTIME | OBJECTS | {"-offset", "-first_ntfsvol"},
    "quarry -IMAGE disk.img -": ANYTIME | OBJECTS | {"-offset", "-first_ntfsvol"},
    "quarry -drivenum 1 -": ANYTIME | OBJECTS | {"-offset", "-first_ntfsvol"},
    "quarry -image disk.img -offset 1048576 -": ANYTIME | OBJECTS | {"-ignore_image_size"},
    "quarry -image disk.img -first_ntfsvol -": ANYTIME | OBJECTS,
    "quarry -partition /dev/sdb1 -": ANYTIME | OBJECTS,
    "quarry -vmdk base.vmdk -": ANYTIME | OBJECTS | {"-vmdk", "-offset"},
    "quarry -image disk.img -src /a -": ANYTIME | {"-mft", "-offset", "-first_ntfsvol"},
    "quarry -image disk.img -mft 5 -": ANYTIME | {"-src", "-offset", "-first_ntfsvol"},
    "quarry -image disk.img -cluster 5 -": ANYTIME | {"-offset", "-first_ntfsvol"},
    "quarry -image disk.img -pipe -": ANYTIME | FILTERS | {"-offset", "-first_ntfsvol"},
    "quarry -partition /dev/sdb1 -enumdir folder -": ANYTIME | FILTERS | {"-num_subdirs"},
    "quarry -partition /dev/sdb1 -pipe -filter a -": ANYTIME | FILTERS | {"-filter_skip", "-filter_path"},
    "quarry -image ": {"base.vmdk", "disk.img", "folder/"},
    "quarry -image dis": {"disk.img"},
    "quarry -vmdk b": {"base.vmdk"},
    "quarry -image disk.img -dst fol": {"folder/"},
    "quarry -enumdir ": {"folder/"},
    "quarry -src ": set(),
    "quarry -image disk.img -offset ": set(),
    "quarry -dateformat d": {"dd/mm/yyyy"},
}


def need(shell):
    if shutil.which(shell) is None:
        if os.environ.get("CI"):
            pytest.fail(f"{shell} is not installed")
        pytest.skip(f"{shell} is not installed")


@pytest.fixture(autouse=True)
def desk(tmp_path, monkeypatch):
    """A directory with something to complete, the program in the search path, no habits of the user."""
    for name in ("disk.img", "base.vmdk"):
        (tmp_path / name).write_bytes(b"")
    (tmp_path / "folder").mkdir()
    monkeypatch.chdir(tmp_path)
    home = tmp_path / "folder" / "home"
    home.mkdir()
    for name, value in {"HOME": str(home), "XDG_CONFIG_HOME": str(home), "TERM": "dumb",
                        "PATH": os.path.dirname(PROGRAM) + ":" + os.environ["PATH"]}.items():
        monkeypatch.setenv(name, value)


def with_slashes(names):
    """Directories as the other shells print them."""
    return {name + "/" if os.path.isdir(name) else name for name in names}


def ask_bash(line):
    words = line.split(" ")
    quoted = " ".join(f"'{word}'" for word in words)
    script = f"""
        source {COMPLETIONS}/quarry.bash
        complete -p quarry | grep -q -- '-F _quarry quarry' || exit 1
        COMP_WORDS=({quoted}) COMP_CWORD={len(words) - 1}
        _quarry quarry
        printf '%s\\n' "${{COMPREPLY[@]}}"
    """
    answer = subprocess.run(["bash", "--norc", "-c", script], check=True, capture_output=True, text=True)
    assert answer.stderr == ""
    return with_slashes(set(answer.stdout.split("\n")) - {""})


def ask_fish(line):
    # The path of the completions is all that is set: fish finds and loads the file by itself.
    script = f"set -p fish_complete_path {COMPLETIONS}; complete -C '{line}'"
    answer = subprocess.run(["fish", "--no-config", "-c", script], check=True, capture_output=True, text=True)
    assert answer.stderr == ""
    return {offer.split("\t")[0] for offer in answer.stdout.split("\n")} - {""}


class Zsh:
    """An interactive zsh on a terminal of its own. Nothing is typed before its line editor has shown the prompt: until
    then the terminal itself would take the keys."""

    PROMPT = "<ready>"

    def __init__(self):
        child, self.terminal = pty.fork()
        if child == 0:
            os.execvpe("zsh", ["zsh", "-f", "-i"], {**os.environ, "PS1": self.PROMPT})
        self.child = child
        self.unread = ""
        self.read_until(self.PROMPT)
        self.run("unset zle_bracketed_paste; stty -echo columns 4000 rows 500; LISTMAX=10000")
        self.run(f"fpath=({COMPLETIONS} $fpath); autoload -Uz compinit && compinit -u -D")
        self.run("setopt list_rows_first no_list_types mark_dirs; zstyle ':completion:*' list-colors ''")
        # The list is between two marks, one candidate a line.
        self.run("show() { compadd() { local -a found; builtin compadd -A found \"$@\"; "
                 "print -rl -- \"<\"${^found}\">\"; builtin compadd \"$@\" }; zle list-choices; unfunction compadd; "
                 "BUFFER=; print -r -- LIS''TED }; zle -N show; bindkey '^T' show")

    def send(self, text):
        os.write(self.terminal, text.encode())

    def read_until(self, mark):
        """What was shown up to the mark and with it."""
        deadline = time.monotonic() + 60
        while mark not in self.unread:
            ready, _, _ = select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))
            assert ready, f"zsh did not answer: {self.unread!r}"
            self.unread += os.read(self.terminal, 65536).decode(errors="replace")
        seen, _, self.unread = self.unread.partition(mark)
        return seen + mark

    def run(self, command):
        self.send(f"{command}; print MARK''ED\n")
        seen = self.read_until("MARKED")
        self.read_until(self.PROMPT)
        return seen

    def close(self):
        self.send("\x15exit\n")
        os.close(self.terminal)
        os.waitpid(self.child, 0)


@pytest.fixture
def zsh():
    need("zsh")
    shell = Zsh()
    yield shell
    shell.close()


def ask_zsh(shell, line):
    shell.send(line + "\x14")
    seen = shell.read_until("LISTED")
    return with_slashes(set(re.findall(r"<([^<>\r\n]+)>", seen)) - {"ready"})


@pytest.mark.parametrize("line", CASES)
def test_bash_offers_what_fits(line):
    need("bash")
    assert ask_bash(line) == CASES[line]


@pytest.mark.parametrize("line", CASES)
def test_fish_offers_what_fits(line):
    need("fish")
    assert ask_fish(line) == CASES[line]


def test_zsh_knows_the_program_by_the_file_alone(zsh):
    assert "known:_quarry." in zsh.run("print known:${_comps[quarry]}.")


def test_zsh_offers_what_fits(zsh):
    for line, offers in CASES.items():
        assert ask_zsh(zsh, line) == offers, line
