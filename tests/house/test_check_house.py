#!/usr/bin/env python3
"""The checks themselves: each must find a planted fault, and pass the same file without it."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import check_house  # noqa: E402


def tree(files):
    root = pathlib.Path(tempfile.mkdtemp())
    for name, text in files.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    return root


class IncludeOrder(unittest.TestCase):
    def complaints(self, name, line):
        return check_house.check_includes(tree({f"src/{name}": line + "\n"}))

    def test_a_room_below_may_not_include_one_above(self):
        self.assertTrue(self.complaints("utility/CAGuard.h", '#include "avcapture/AVCapture.h"'))
        self.assertTrue(self.complaints("tap/Pacer.cpp", '#include "utility/CAGuard.h"'))
        self.assertFalse(self.complaints("avcapture/AVCapture.cpp", '#include "utility/CAGuard.h"'))

    def test_outside_headers_stay_in_the_machine(self):
        self.assertTrue(self.complaints("cli/Recorder.cpp", "#include <pipewire/pipewire.h>"))
        self.assertTrue(self.complaints("platform/kernel/Memory.cpp", "#include <sys/mman.h>"))
        self.assertFalse(self.complaints("platform/machine/linux/LinuxMemory.cpp", "#include <sys/mman.h>"))

    def test_threads_of_the_library_would_leave_virtual_time(self):
        self.assertTrue(self.complaints("cli/Recorder.cpp", "#include <thread>"))
        self.assertFalse(self.complaints("cli/Recorder.cpp", "#include <atomic>"))


class BareCalls(unittest.TestCase):
    def complaints(self, code):
        root = tree({"a.cpp": code})
        subprocess.run(["g++", "-std=c++20", "-c", root / "a.cpp", "-o", root / "a.o"], check=True)
        return check_house.check_symbols([str(root / "a.o")])

    def test_a_bare_lock_or_sleep_is_found(self):
        self.assertTrue(self.complaints("#include <pthread.h>\nvoid f(pthread_mutex_t* m) { pthread_mutex_lock(m); }"))
        self.assertTrue(self.complaints("#include <unistd.h>\nvoid f() { usleep(1); }"))

    def test_a_platform_call_of_the_same_name_is_not(self):
        self.assertFalse(self.complaints("namespace platform::kernel { int usleep(unsigned); }\nvoid f() { platform::kernel::usleep(1); }"))


class Surface(unittest.TestCase):
    HEADER = "#pragma once\n/// One.\n/// @realtime yes\nint UsedCall(int value);\n\nvoid IdleCall();\n"

    def test_a_call_without_a_user_is_found(self):
        root = tree({"src/platform/kernel/A.h": self.HEADER, "src/cli/B.cpp": "int f() { return UsedCall(1); }\n"})
        table, unused = check_house.surface(root)
        self.assertEqual(len(unused), 1)
        self.assertIn("IdleCall", unused[0])
        self.assertIn("| `UsedCall` | platform/kernel/A.h | cli | yes |", table)


if __name__ == "__main__":
    unittest.main()
