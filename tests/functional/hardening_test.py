"""What is built is hardened: read from the programs and libraries themselves."""

import fnmatch
import pathlib
import platform
import re
import subprocess
import unittest

import agent

BUILD = pathlib.Path(agent.AGENT).resolve().parent.parent
PROGRAMS = [BUILD / "bin" / name for name in ("ovix-agent", "ovixctl", "ovix-fpm")]
MODULE = BUILD / "lib" / "libOvixDpdk.so"  # where there is DPDK
LIBRARIES = [BUILD / "lib" / name for name in ("libOvixHost.so", "libMplsOvixPlugin.so")] + [MODULE] * MODULE.exists()


def shown(*command) -> str:
    return subprocess.run([str(word) for word in command], check=True, capture_output=True,
                          text=True).stdout


def cached(name: str) -> str:
    """A variable of the build."""
    found = re.search(rf"^{name}:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE)
    return found.group(1) if found else ""


@unittest.skipIf(cached("OVIX_SANITIZE"), "sanitizers take the place of hardening")
class Hardening(unittest.TestCase):
    def each(self, binaries, *command):
        return [(binary, shown(*command, binary)) for binary in binaries]

    def test_addresses_are_random_and_relocations_read_only(self):
        for _, text in self.each(PROGRAMS + LIBRARIES, "readelf", "-W", "-l", "-d"):
            self.assertIn("Elf file type is DYN", text)
            self.assertRegex(text, r"GNU_RELRO .*\bR\b")
            self.assertRegex(text, r"\(FLAGS_1\).*\bNOW\b")
            self.assertRegex(text, r"GNU_STACK .*\bRW \s")
            self.assertNotRegex(text, r"LOAD .*\bRWE\b")
            self.assertNotIn("TEXTREL", text)
        for _, text in self.each(PROGRAMS, "readelf", "-W", "-d"):
            self.assertRegex(text, r"\(FLAGS_1\).*\bPIE\b")

    def test_stack_frames_have_canaries(self):
        for _, text in self.each(PROGRAMS + LIBRARIES, "readelf", "-W", "--dyn-syms"):
            self.assertRegex(text, r"UND +__stack_chk_(fail|guard)")

    @unittest.skipIf("-O0" in cached("CMAKE_CXX_FLAGS_RELEASE"), "the build does not optimise")
    def test_copies_are_checked(self):
        for _, text in self.each([PROGRAMS[0]], "readelf", "-W", "--dyn-syms"):
            self.assertRegex(text, r"UND +__\w+_chk@")

    @unittest.skipUnless(platform.machine() == "x86_64", "instructions of another processor")
    def test_large_frames_are_probed_and_jumps_marked(self):
        for _, text in self.each([PROGRAMS[0]], "objdump", "-d", "--no-show-raw-insn"):
            self.assertRegex(text, r"\bor[lq] +\$0x0,[-\w]*\(%rsp\)")
            self.assertGreater(text.count("endbr64"), 1000)
        for _, text in self.each(LIBRARIES, "objdump", "-d", "--no-show-raw-insn"):
            self.assertGreater(text.count("endbr64"), 100)

    @unittest.skipUnless(platform.machine() == "x86_64", "relocations of another processor")
    def test_the_fast_road_alone_has_no_canaries_and_nothing_of_it_may_be_replaced(self):
        hash_of_flows = [*BUILD.glob("CMakeFiles/OvixHostObjects.dir/**/FlowHash.cpp.o")]
        road = [*BUILD.glob("CMakeFiles/OvixFastRoad.dir/**/*.o")]
        others = [*BUILD.glob("CMakeFiles/OvixAgentLib.dir/**/*.o")]
        self.assertTrue(hash_of_flows and road and others)
        for one, text in self.each(hash_of_flows, "readelf", "-W", "-s"):
            self.assertNotIn("__stack_chk_fail", text, one.name)
        for one, text in self.each(road, "readelf", "-W", "-s", "-r"):
            self.assertNotIn("__stack_chk_fail", text, one.name)
            own = set(re.findall(r"FUNC +GLOBAL +DEFAULT +\d+ (\S+)", text))
            self.assertEqual(own & set(re.findall(r"GOTPCRELX\s+\w+\s+(\S+)", text)), set(), one.name)
        self.assertTrue(all("__stack_chk_fail" in text for _, text in self.each(others, "readelf", "-W", "-s")))

    @unittest.skipUnless(platform.machine() == "x86_64", "notes of another processor")
    def test_objects_may_have_jumps_and_returns_enforced_and_what_is_linked_returns(self):
        objects = [one for one in BUILD.glob("CMakeFiles/**/*.cpp.o")] + [*BUILD.glob("CMakeFiles/**/unity_*.o")]
        self.assertGreater(len(objects), 10)
        for one, text in self.each(objects, "readelf", "-W", "-n"):
            self.assertRegex(text, "x86 feature: IBT, SHSTK", one.name)
        # The C library's start code marks no jumps.
        for one, text in self.each(PROGRAMS + LIBRARIES, "readelf", "-W", "-n"):
            self.assertRegex(text, r"x86 feature: (IBT, )?SHSTK", one.name)

    def symbols(self, binary: pathlib.Path, which: str) -> set[str]:
        """Names as they are linked, without those of other libraries' data that the linker has copied."""
        return {line.split()[-1] for line in shown("nm", "-D", which, binary).splitlines() if "@" not in line}

    def copied(self, binary: pathlib.Path) -> set[str]:
        """Variables of libraries that are in the program's own memory."""
        return set(re.findall(r"_COPY +\w+ +(\w+) \+", shown("readelf", "-W", "-r", binary)))

    def readable(self, names: set[str]) -> set[str]:
        """One name for all symbols of a constructor."""
        return set(subprocess.run(["c++filt"], input="\n".join(names), check=True, capture_output=True,
                                  text=True).stdout.splitlines())

    def test_the_hosts_library_exports_what_others_use_and_they_export_nothing_else(self):
        host, *others = LIBRARIES
        exported = self.symbols(host, "--defined-only")
        used = set().union(*(self.symbols(one, "--undefined-only") | self.copied(one) for one in PROGRAMS + others))
        # One slab for each type, whatever uses it. A build with tests also has names for them.
        stated = ["Tessel::Slabbed*::slab_", *re.findall(r"(?m)^(\w\S*);$", (agent.SOURCE / "tests/host.names").read_text())]
        unused = self.readable(exported) - self.readable(used)
        self.assertEqual([name for name in unused if not any(fnmatch.fnmatchcase(name, one) for one in stated)], [])
        self.assertGreater(len(exported & used), 100)
        for program in PROGRAMS:
            self.assertLessEqual(self.symbols(program, "--defined-only"), exported, program.name)
        for module in others:
            self.assertEqual(self.symbols(module, "--defined-only"), {"ovixOpenCard"} if module == MODULE else set())


if __name__ == "__main__":
    unittest.main()
