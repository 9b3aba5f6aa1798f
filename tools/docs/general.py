"""What holds for every command: the part of the manuals that does not come from the contract.

Each section is a title and paragraphs; `...` marks literal text, [text](file) a link.
"""

from pathlib import Path

FAILURES = Path(__file__).resolve().parents[2] / "docs/failures.md"


def left_behind():
    """(what, by which commands, what can be left, what mends it): the first table of FAILURES."""
    lines = FAILURES.read_text("utf-8").split("\n")
    first = lines.index("|---|---|---|---|") + 1
    last = lines.index("", first)
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines[first:last]]


OK_MEANS_ACCEPTED = (
    "\"ok\" means that the request was accepted: its values are stored, or its script has been "
    "started. It does not mean that the work is done, or that it went well. Scripts mostly run in "
    "the background and their results are never looked at; neither are those of the stores and "
    "libraries. Each command below that changes something names the reading command which shows "
    "that it took effect.")

SECTIONS = [
    ("Requests", [
        "A request is the name of a command and, if it takes arguments, one JSON object: "
        "`cpectl devNmSet '{\"devNm\":\"office\"}'`. A name only has to begin with that of a "
        "command: "
        "`rebootNow` restarts the gateway. Numbers are no texts: a port is given as `\"8443\"`. "
        "Members are found whatever their capitals; of several with one name the first counts; "
        "others are ignored. Text that is no JSON counts as no arguments.",
        "`-h`, `--help` or `?` alone lists the commands with the number and names of their "
        "arguments. There are no other options; for `--version` and the like nothing is printed.",
    ]),
    ("Answers", [
        "An answer is one line of JSON. `fun` is the command, `stat` is `ok` or an error (`er`, "
        "for "
        "some commands `err`), and `cbk` holds what was asked for. Members come in the order in "
        "which they are listed.",
        "The exit status is 0 when an answer was printed and 255 otherwise: an unknown command, a "
        "wrong number of arguments, an argument text that is too long, an answer that could not be "
        "built or written. `checkOta` prints nothing, and `localcfgUpdate` ends with 255 although "
        "it answers. A refused request is an answer: its status is 0.",
    ]),
    ("What \"ok\" means", [OK_MEANS_ACCEPTED]),
    ("Power cuts", [
        "Settings survive a restart only after a commit, and a command that sets several keys sets "
        "them one by one: what a power cut leaves may be some of them, or all of them uncommitted. "
        "A commit of the stock platform library is all or nothing; that of a vendor's library is "
        "the vendor's. Lines of the tunnel and user files are added in one write. They are deleted "
        "by writing what stays to a file in `/tmp` and moving that over the old one; where `/tmp` "
        "is "
        "another file system the move is a copy, and a power cut can leave a part of it: the old "
        "file has a second name meanwhile, and the next request brings it back. "
        "[failures.md](failures.md) lists, file by file and command by command, what can be left.",
    ]),
    ("Limits", [
        "The argument text may have 1023 bytes. Longer ones run no command: the status is 255, "
        "nothing is on standard output, and one line on standard error says why. What a field "
        "takes less than that is said with the command. A value that would make the text for the "
        "shell too long is refused, not cut.",
    ]),
    ("Secrets", [
        "Passwords and keys are stored in plain text, in the store and in the tunnel and user "
        "files, and `getAdmPass`, `wanInfoGet` and `pptpcConfgGet` tell them so. They are also on "
        "the "
        "command line of `cpectl`, where every user of the gateway can read them as long as it "
        "runs; so is the administrator's new password on that of the hash tool. Let only root "
        "have a shell on the gateway, and keep answers and traces out of logs.",
        "Values go into shell texts so that the shell takes them as one word and executes nothing "
        "of them; [injection.md](injection.md) lists every place.",
    ]),
]
