#!/usr/bin/env python3
"""Checks the order of the house: who includes what, who calls what, and that every platform call has a user.

    check_house.py includes <root>
    check_house.py symbols <archive or object>...
    check_house.py surface <root> [--write]
"""
import pathlib
import re
import subprocess
import sys

# Room -> the rooms it may include. Rooms are the longest matching prefixes of a path below src/.
ALLOWED = {
    "platform": {"platform"},
    "platform/machine": {"platform"},
    "platform/machine/linux": {"platform", "platform/machine", "platform/machine/linux"},
    "platform/machine/simulated": {"platform", "platform/machine", "platform/machine/simulated"},
    "utility": {"platform", "platform/machine"},
    "capture/buffers": {"platform", "utility"},
    "framework": {"platform", "utility", "capture/buffers"},
    "tap/wire": set(),
    "avcapture": {"platform", "utility", "capture/buffers", "tap/wire"},
    "capture": {"platform", "utility", "capture/buffers", "avcapture"},
    "plugin/settings": {"platform", "utility", "capture/buffers"},
    "plugin": {"platform", "utility", "framework", "plugin/settings", "capture", "capture/buffers", "avcapture"},
    "tap": {"platform", "platform/machine", "tap/wire"},
    "record": {"platform", "platform/machine", "utility", "capture", "capture/buffers", "avcapture", "tap/wire"},
    "cli": {"platform", "platform/machine", "utility", "plugin/settings", "capture", "capture/buffers", "avcapture", "record"},
}
ALLOWED["platform"] |= {"platform/machine"}
ALLOWED["platform/machine"] |= {"platform/machine"}
# The one place that chooses the machine.
EXCEPTIONS = {("platform/machine/Machine.cpp", "platform/machine/linux/LinuxMachine.h")}

OUTSIDE = re.compile(r"^(pipewire/|spa/|X11/|xcb/|dbus/|systemd/|linux/|asm/|poll\.h|semaphore\.h|sched\.h|time\.h|sys/"
                     r"(epoll|inotify|eventfd|timerfd|mman|syscall|prctl|time|select|socket|un)\.h)")
WAITING = re.compile(r"^(thread|mutex|shared_mutex|condition_variable|chrono|future|semaphore|barrier|latch|stop_token|pthread\.h)$")
WAITING_ALLOWED = {"platform/kernel/Threads.h", "platform/machine/Threads.h", "platform/machine/Machine.cpp"}

BARE = re.compile(r"^(pthread_(?!self$|equal$)\w+|clock_\w+|clock|gettimeofday|time|nanosleep|usleep|sleep|alarm|setitimer|timer\w*|"
                  r"p?poll|p?select|epoll_\w+|eventfd|inotify_\w+|sem_\w+|sched_\w+|syscall|futex|mmap(64)?|munmap|mremap|"
                  r"mprotect|mlock\w*|munlock\w*|madvise|_ZNSt6thread\w+|_ZNSt18condition_variable\w+|_ZNSt6chrono\w+now\w+|"
                  r"_ZNSt11this_thread\w+|thrd_\w+|mtx_\w+|cnd_\w+)$")


def room_of(path):
    return max((room for room in ALLOWED if path.startswith(room + "/")), key=len, default=None)


def sources(root):
    for path in sorted((root / "src").rglob("*")):
        if path.suffix in (".h", ".cpp"):
            yield path.relative_to(root / "src").as_posix(), path.read_text()


def check_includes(root):
    wrong = []
    for name, text in sources(root):
        room = room_of(name)
        if room is None:
            wrong.append(f"{name}: lies in no room")
            continue
        concrete = room in ("platform/machine/linux", "platform/machine/simulated")
        for kind, included in re.findall(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', text, re.M):
            if kind == '"':
                target = room_of(included)
                if target is None or (target not in ALLOWED[room] | {room} and (name, included) not in EXCEPTIONS):
                    wrong.append(f"{name}: may not include {included}")
            elif not concrete and OUTSIDE.match(included):
                wrong.append(f"{name}: <{included}> belongs behind the machine's ports")
            elif not concrete and WAITING.match(included) and name not in WAITING_ALLOWED:
                wrong.append(f"{name}: <{included}> would leave virtual time; use platform/kernel")
    return wrong


def check_symbols(objects):
    wrong = []
    for item in objects:
        output = subprocess.run(["nm", "-u", "--format=just-symbols", item], capture_output=True, text=True, check=True).stdout
        for symbol in sorted(set(output.split())):
            if BARE.match(symbol.split("@")[0]):
                wrong.append(f"{pathlib.Path(item).name}: calls {symbol} itself; use platform/kernel")
    return wrong


DECLARATION = re.compile(r"^(?:extern \"C\" )?(?:[\w:<>*&]+[ \n]+)+[*&]?(\w+)\(", re.M)
KEYWORDS = {"if", "return", "sizeof", "static_assert", "alignas", "decltype", "defined", "assert"}


def declared_calls(text):
    """The free functions that a header declares, each with whether its comment says that it is real-time."""
    depth, calls, comment = 0, [], ""
    statement = ""
    for line in text.splitlines():
        stripped = line.strip()
        if stripped.startswith("//"):
            comment += stripped + "\n"
            continue
        if not stripped:
            comment, statement = "", ""
            continue
        code = stripped.split("//")[0]
        opens = code.count("{") - code.count("}")
        if depth == 0 and not re.match(r"(#|using|namespace|template|constexpr|enum|struct|class|static_assert|\})", code):
            statement += " " + code
            if statement.rstrip().endswith((";", "}")):
                match = DECLARATION.match(statement.strip())
                if match and match.group(1) not in KEYWORDS and not statement.strip().startswith("constexpr"):
                    calls.append((match.group(1), bool(re.search(r"@realtime\s+(yes|after the first call: yes)", comment))))
                statement = ""
        if not code.startswith("namespace") and not (code.startswith("}") and depth == 0):
            depth = max(0, depth + opens)
    return calls


def other_rooms_tests(root):
    """What tests of rooms above the platform hand to it or ask of it; the platform's own tests are no users."""
    return "\n".join(path.read_text() for path in sorted((root / "tests").rglob("*.cpp"))
                     if "platform" not in path.relative_to(root).parts)


def uses_itself(text, call):
    """Whether a header calls what it declares, in a template, an inline function or a macro."""
    return len(re.findall(rf"\b{call}\(", text)) > 1


def surface(root):
    texts = dict(sources(root))
    tests = other_rooms_tests(root)
    rows, unused = [], []
    for name, text in texts.items():
        if not name.endswith(".h") or name.count("/") != 2 or name.split("/")[1] == "machine" or not name.startswith("platform/"):
            continue
        own = name[:-2]
        for call, realtime in declared_calls(text):
            users = sorted({room_of(other) if not other.startswith("platform/") else "/".join(other.split("/")[:2])
                            for other, body in texts.items()
                            if call in body and other.rsplit(".", 1)[0] != own
                            and re.search(rf"\b{call}\b\s*[(,;}}]", body) and not implements(body, call)})
            if uses_itself(text, call):
                users.append("/".join(name.split("/")[:2]))
            if call in tests and re.search(rf"\b{call}\(", tests):
                users.append("tests")
            users = sorted(set(users))
            rows.append(f"| `{call}` | {name} | {', '.join(users)} | {'yes' if realtime else 'no'} |")
            if not users:
                unused.append(f"{name}: {call} has no user; a platform call that nothing uses is not written")
    table = ["# The platform's surface", "", "Made by `tests/house/check_house.py surface . --write`; a row without a user fails a test.", "",
             "| Call | Header | Used by | Real-time |", "|---|---|---|---|"] + sorted(set(rows))
    return "\n".join(table) + "\n", unused


def implements(body, call):
    return re.search(rf"^[\w:<>*& ]+[ *&](?:\w+::)*{call}\([^;{{]*\)[^;{{]*\{{", body, re.M | re.S) is not None and \
        not re.search(rf"(?<![\w:])(?:kernel::)?{call}\(", re.sub(rf"^[\w:<>*& ]+[ *&](?:\w+::)*{call}\([^;{{]*\)[^;{{]*\{{", "", body, flags=re.M | re.S))


def check_surface(root, write):
    table, wrong = surface(root)
    page = root / "docs" / "platform-surface.md"
    if write:
        page.write_text(table)
    elif not page.exists() or page.read_text() != table:
        wrong.append("docs/platform-surface.md is not what the headers say; make it anew with --write")
    return wrong


def main(arguments):
    command, rest = arguments[0], arguments[1:]
    if command == "includes":
        wrong = check_includes(pathlib.Path(rest[0]))
    elif command == "symbols":
        wrong = check_symbols(rest)
    elif command == "surface":
        wrong = check_surface(pathlib.Path(rest[0]), "--write" in rest)
    else:
        sys.exit(__doc__)
    print("\n".join(wrong) if wrong else "in order")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
