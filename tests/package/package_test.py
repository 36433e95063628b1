#!/usr/bin/env python3
"""Shows that the installed library can be used: installs the build, builds hosts against it, makes the packages.

package_test.py BUILD SOURCE
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(sys.argv[1]).resolve()
SOURCE = pathlib.Path(sys.argv[2]).resolve()
EXAMPLES = SOURCE / "docs/examples"


def run(*command, **options):
    """Runs a command; its output when it succeeds, a failure with all it printed when it does not."""
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} gave {done.returncode}:\n{done.stdout}")
    return done.stdout


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="cloudbackup-package-")
        cls.work = pathlib.Path(cls.folder.name)
        cls.prefix = cls.work / "prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def library_folder(self):
        return next(self.prefix.glob("**/libcloudbackuplib.so")).parent

    def test_nothing_lies_beside_its_place(self):
        tops = {path.relative_to(self.prefix).parts[0] for path in self.prefix.rglob("*")}
        self.assertEqual(tops, {"bin", "include", "lib", "share"})
        self.assertEqual([path.name for path in (self.prefix / "include").iterdir()], ["cloudbackup"])
        self.assertEqual([path.name for path in (self.prefix / "bin").iterdir()], ["cloudbackup"])

    def test_the_shared_libraries_bear_their_version(self):
        for name in ("libcloudbackup_common", "libcloudclientlib", "libcloudbackuplib"):
            link = self.library_folder() / f"{name}.so"
            soname = run("objdump", "-p", link).split("SONAME")[1].split()[0]
            self.assertRegex(soname, rf"^{name}\.so\.\d+\.\d+$")
            self.assertRegex(link.resolve().name, rf"^{re.escape(soname)}\.\d+$")
            self.assertEqual((self.library_folder() / soname).resolve(), link.resolve())

    def test_the_installed_agent_runs(self):
        self.assertRegex(run(self.prefix / "bin/cloudbackup", "--version"), r"\d+\.\d+\.\d+")

    def test_the_manual_page_and_the_completions_are_installed(self):
        share = self.prefix / "share"
        use = ["bash-completion/completions/cloudbackup", "fish/vendor_completions.d/cloudbackup.fish",
               "man/man1/cloudbackup.1", "zsh/site-functions/_cloudbackup"]
        self.assertEqual(sorted(str(path.relative_to(share)) for path in share.rglob("*") if path.is_file()), use)
        page = subprocess.run(["groff", "-man", "-Tutf8", "-ww", share / use[2]], capture_output=True, text=True, check=True)
        self.assertEqual(page.stderr, "")
        self.assertIn("EXIT STATUS", re.sub(".\x08", "", page.stdout))  # bold letters are printed twice
        words = "COMP_WORDS=(cloudbackup resto); COMP_CWORD=1; _cloudbackup; echo ${COMPREPLY[@]}"
        self.assertEqual(run("bash", "-c", f"source {share / use[0]}; {words}"), "restore\n")
        self.assertTrue((share / use[3]).read_text().startswith("#compdef cloudbackup\n"))
        self.assertIn("complete -c cloudbackup", (share / use[1]).read_text())

    def test_every_header_stands_on_installed_headers_alone(self):
        include = self.prefix / "include/cloudbackup"
        headers = sorted(path.relative_to(include).as_posix() for path in include.rglob("*.h"))
        self.assertIn("cloudbackuplib/CloudBackupLibCtx.h", headers)
        self.assertIn("cloudclientlib/wrappers/CountingClient.h", headers)
        text = "".join(f'#include "{header}"\n' for header in headers)
        run("c++", "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", f"-I{include}", "-x", "c++", "-",
            input=text)

    def test_a_host_builds_with_cmake(self):
        build = self.work / "consumer_cmake"
        run("cmake", "-G", "Ninja", "-S", SOURCE / "tests/package/consumer_cmake", "-B", build,
            f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DEXAMPLES={EXAMPLES}")
        run("cmake", "--build", build)
        source = EXAMPLES / "read_back.cpp"
        self.assertIn("byte for byte", run(build / "read_back", source, self.work / "restored"))
        self.assertEqual((self.work / "restored").read_bytes(), source.read_bytes())
        self.assertIn("broken: 0", run(build / "own_client"))
        self.assertIn("kept checkpoints: 5 6 7", run(build / "all_libraries"))

    def test_cmake_refuses_another_minor_version(self):
        for version, found in (("0.1", True), ("0.0", False), ("0.2", False), ("1", False)):
            script = self.work / "find.cmake"
            script.write_text(f"cmake_minimum_required(VERSION 3.25)\nproject(p LANGUAGES CXX)\n"
                              f"find_package(cloudbackuplib {version})\n"
                              f"if(NOT cloudbackuplib_FOUND)\nmessage(FATAL_ERROR not-here)\nendif()\n")
            project = self.work / f"find-{version}"
            project.mkdir()
            script.rename(project / "CMakeLists.txt")
            done = subprocess.run(["cmake", "-S", project, "-B", project / "build",
                                   f"-DCMAKE_PREFIX_PATH={self.prefix}"], capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode == 0, found, version + done.stderr)

    def test_a_host_builds_with_pkg_config(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.library_folder() / "pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "cloudbackuplib", env=environment).split()
        self.assertRegex(run("pkg-config", "--modversion", "cloudbackuplib", env=environment), r"^\d+\.\d+\.\d+$")
        program = self.work / "pkg_config_host"
        # The conformance suite is a static library of its own.
        run("c++", "-std=c++20", EXAMPLES / "own_client.cpp", "-o", program, "-lcloudbackup_conformance", *flags,
            f"-Wl,-rpath,{self.library_folder()}", env=dict(environment, LIBRARY_PATH=str(self.library_folder())))
        self.assertIn("broken: 0", run(program))

    def test_the_debian_packages_install_and_leave_nothing(self):
        packages = self.work / "packages"
        run("cpack", "-G", "DEB", "-B", packages, "--config", BUILD / "CPackConfig.cmake", cwd=self.work)
        debs = sorted(packages.glob("*.deb"))
        names = [run("dpkg-deb", "-f", deb, "Package").strip() for deb in debs]
        self.assertEqual(sorted(names), ["cloudbackup", "libcloudbackup-dev", "libcloudbackup0.1"])
        by_name = dict(zip(names, debs))
        depends = {name: run("dpkg-deb", "-f", deb, "Depends") for name, deb in by_name.items()}
        self.assertIn("libssl3", depends["libcloudbackup0.1"])
        self.assertIn("libcloudbackup0.1 (=", depends["libcloudbackup-dev"])
        self.assertIn("libcloudbackup0.1 (=", depends["cloudbackup"])

        root = self.work / "root"
        for folder in ("var/lib/dpkg/updates", "var/lib/dpkg/info", "var/log"):
            (root / folder).mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()
        # Into a root of the test's own; what the packages need is not in it, so it is not asked for.
        dpkg = ([] if os.geteuid() == 0 else ["unshare", "--map-root-user"]) + \
            ["dpkg", f"--root={root}", "--force-depends", "--force-script-chrootless",
             "--log=/dev/null"]
        run(*dpkg, "--install", *debs)
        agent = root / "usr/bin/cloudbackup"
        libraries = next(root.glob("usr/lib/**/libcloudbackuplib.so.*")).parent
        self.assertRegex(run(agent, "--version", env=dict(os.environ, LD_LIBRARY_PATH=str(libraries))), r"\d+\.\d+")
        self.assertTrue((root / "usr/include/cloudbackup/cloudbackuplib/CloudBackup.h").exists())
        self.assertTrue((root / "usr/share/man/man1/cloudbackup.1").exists())
        self.assertTrue((root / "usr/share/bash-completion/completions/cloudbackup").exists())
        run(*dpkg, "--purge", *names)
        self.assertEqual([path for path in (root / "usr").rglob("*") if path.is_file()] if (root / "usr").exists()
                         else [], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
