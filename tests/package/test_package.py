"""Installs the build tree BUILD_DIR, moves what was installed, and builds and runs against it what README and
docs/start.md show: by the commands that they give, and by find_package. SOURCE_DIR is the tree, CXX the compiler."""
import os
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

SOURCE, BUILD = os.environ["SOURCE_DIR"], os.environ["BUILD_DIR"]
CXX = os.environ["CXX"]
TOUR = os.path.join(SOURCE, "examples", "tour")


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, timeout=240, **options)
    if done.returncode:
        raise AssertionError("%s\n%s%s" % (command, done.stdout, done.stderr))
    return done.stdout


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="package-")
        cls.addClassCleanup(shutil.rmtree, cls.dir)
        first, cls.prefix = os.path.join(cls.dir, "first"), os.path.join(cls.dir, "moved")
        run("cmake", "--install", BUILD, "--prefix", first)
        os.rename(first, cls.prefix)
        with open(os.path.join(SOURCE, "README.md")) as f:
            cls.readme = f.read()
        cls.env = {k: v for k, v in os.environ.items() if k not in ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH")}
        cls.env["PATH"] = os.path.join(cls.prefix, "bin") + os.pathsep + cls.env["PATH"]
        for where, _, files in os.walk(cls.prefix):
            if "poa.pc" in files:
                cls.env["PKG_CONFIG_PATH"] = where

    def readme_block(self, marker, language):
        return re.search(re.escape(marker) + r"\n+```%s\n(.*?)\n```" % language, self.readme, re.S).group(1)

    def serves(self, program):
        """The server prints a reference, serves, and ends well when it is told to."""
        with subprocess.Popen([program], stdout=subprocess.PIPE, text=True, env=self.env) as server:
            self.assertRegex(server.stdout.readline(), "^IOR:[0-9a-fA-F]+$")
            server.send_signal(signal.SIGTERM)
            self.assertEqual(server.wait(60), 0)

    def test_commands_of_the_readme(self):
        where = os.path.join(self.dir, "commands")
        shutil.copytree(TOUR, where)
        with open(os.path.join(where, "server.cpp"), "w") as f:
            f.write(self.readme_block("<!-- server -->", "cpp"))
        commands = self.readme_block("<!-- build -->", "")
        run("bash", "-euc", "g++() { %s \"$@\"; }\n%s" % (CXX, commands), cwd=where, env=self.env)
        self.serves(os.path.join(where, "a.out"))

    def test_find_package(self):
        where = os.path.join(self.dir, "cmake")
        os.mkdir(where)
        server = os.path.join(where, "server.cpp")
        with open(server, "w") as f:
            f.write(self.readme_block("<!-- server -->", "cpp"))
        run("cmake", "-S", os.path.dirname(os.path.abspath(__file__)), "-B", where + "/build", "-G", "Ninja",
            "-DCMAKE_PREFIX_PATH=" + self.prefix, "-DCMAKE_CXX_COMPILER=" + CXX, "-DCONSUMER_SOURCES=" + server,
            "-DCONSUMER_IDL=" + os.path.join(TOUR, "echo.idl"), env=self.env)
        run("cmake", "--build", where + "/build", env=self.env)
        self.serves(where + "/build/server")

    def start_files(self, name):
        """A new folder with the files that docs/start.md shows."""
        where = os.path.join(self.dir, name)
        os.mkdir(where)
        with open(os.path.join(SOURCE, "docs", "start.md")) as f:
            files = re.findall(r"<!-- file: (\S+) -->\n```\w+\n(.*?)```\n", f.read(), re.S)
        self.assertEqual(len(files), 5)
        for file, text in files:
            with open(os.path.join(where, file), "w") as f:
                f.write(text)
        return where

    def talk(self, where, programs):
        """The server and the client of docs/start.md, as it says what the client says."""
        with subprocess.Popen([programs + "/server"], cwd=where, stdout=subprocess.PIPE, text=True, env=self.env) as server:
            try:
                self.assertEqual(server.stdout.readline(), "ready\n")
                self.assertEqual(run(programs + "/client", cwd=where, env=self.env), "20 are missing\nAnn has 100\n")
            finally:
                server.kill()

    def test_ten_minutes_with_cmake(self):
        where = self.start_files("start-cmake")
        run("cmake", "-B", "build", "-G", "Ninja", "-DCMAKE_PREFIX_PATH=" + self.prefix, "-DCMAKE_CXX_COMPILER=" + CXX,
            cwd=where, env=self.env)
        run("cmake", "--build", "build", cwd=where, env=self.env)
        self.talk(where, where + "/build")
        idl = os.path.join(where, "bank.idl")  # a changed interface is compiled again
        with open(idl, "a") as f:
            f.write("const long LIMIT = 7;\n")
        run("cmake", "--build", "build", "--target", "bank", cwd=where, env=self.env)
        with open(where + "/build/bank.idl/bank.h") as f:
            self.assertIn("LIMIT = 7", f.read())

    def test_ten_minutes_with_make(self):
        where = self.start_files("start-make")
        run("make", "CXX=" + CXX, cwd=where, env=self.env)
        self.talk(where, where)

    def test_the_program_picks_its_language(self):
        flags = run("pkg-config", "--cflags", "--libs", "poa", env=self.env)
        self.assertNotIn("-std", flags)
        self.assertIn(self.prefix, flags)


if __name__ == "__main__":
    unittest.main()
