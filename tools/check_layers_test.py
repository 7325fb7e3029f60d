"""The layer check finds what it is there to find."""

import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import check_layers


class LayerCheck(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.directory.name)
        self.write("MplsVorn/OvixHost/Ovix/Host.h", "#include <vector>\n")
        self.write("MplsVorn/OvixPlugin/Plugin.h", '#include "Ovix/Host.h"\n')
        self.write("MplsVorn/OvixAgent/Agent.h", '#include "Ovix/Host.h"\n#include <pcap/pcap.h>\n')

    def tearDown(self):
        self.directory.cleanup()

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def breaches(self):
        return list(check_layers.include_breaches(self.root))

    def test_one_way_includes_pass(self):
        self.assertEqual(self.breaches(), [])

    def test_host_including_plugin_is_found(self):
        self.write("MplsVorn/OvixHost/Up.cpp", '#include "Plugin.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_plugin_including_agent_is_found(self):
        self.write("MplsVorn/OvixPlugin/Up.cpp", '#include "Agent.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_agent_including_plugin_is_found(self):
        self.write("MplsVorn/OvixAgent/Into.cpp", '#include "Plugin.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_listener_including_host_passes(self):
        self.write("MplsVorn/OvixFpm/Listener.cpp", '#include "Ovix/Host.h"\n')
        self.assertEqual(self.breaches(), [])

    def test_listener_including_agent_is_found(self):
        self.write("MplsVorn/OvixFpm/Into.cpp", '#include "Agent.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_programs_including_the_log_pass_and_the_host_doing_so_is_found(self):
        self.write("MplsVorn/OvixLog/Log.h", "#include <spdlog/spdlog.h>\n")
        self.write("MplsVorn/OvixFpm/Listener.cpp", '#include "Log.h"\n')
        self.write("MplsVorn/OvixAgent/Program.cpp", '#include "Log.h"\n')
        self.assertEqual(self.breaches(), [])
        self.write("MplsVorn/OvixHost/Into.cpp", '#include "Log.h"\n#include <spdlog/spdlog.h>\n')
        self.assertEqual(len(self.breaches()), 2)

    def test_listener_including_plugin_is_found(self):
        self.write("MplsVorn/OvixFpm/Into.cpp", '#include "Plugin.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_the_command_includes_the_agent_and_never_the_other_way_round(self):
        self.write("MplsVorn/OvixCtl/Ctl.h", '#include "Agent.h"\n#include <fmt/core.h>\n')
        self.assertEqual(self.breaches(), [])
        self.write("MplsVorn/OvixAgent/Up.cpp", '#include "Ctl.h"\n')
        self.assertEqual(len(self.breaches()), 1)

    def test_plugin_including_a_library_is_found(self):
        self.write("MplsVorn/OvixPlugin/Lib.cpp", "#include <fmt/core.h>\n")
        self.assertEqual(len(self.breaches()), 1)

    def test_folders_that_use_one_another_in_one_direction_pass(self):
        self.write("MplsVorn/OvixAgent/Live/Run.cpp", '#include "Ip/Router.h"\n')
        self.write("MplsVorn/OvixAgent/Ip/Router.h", '#include "State/Fib.h"\n')
        self.write("MplsVorn/OvixAgent/State/Fib.h", '#include "Ovix/Host.h"\n')
        self.assertEqual(list(check_layers.folder_breaches(self.root)), [])

    def test_folders_that_include_each_other_are_found(self):
        self.write("MplsVorn/OvixAgent/Ip/Router.h", '#include "State/Fib.h"\n')
        self.write("MplsVorn/OvixAgent/State/Fib.h", '#include "Ip/Router.h"\n')
        self.assertEqual(len(list(check_layers.folder_breaches(self.root))), 2)

    def test_a_circle_of_three_folders_is_found(self):
        self.write("MplsVorn/OvixPlugin/MplsOvixPlugin/a/A.h", '#include "b/B.h"\n')
        self.write("MplsVorn/OvixPlugin/MplsOvixPlugin/b/B.h", '#include "c/C.h"\n')
        self.write("MplsVorn/OvixPlugin/MplsOvixPlugin/c/C.h", '#include "a/A.h"\n')
        self.assertEqual(len(list(check_layers.folder_breaches(self.root))), 3)


if __name__ == "__main__":
    unittest.main()
