#!/usr/bin/env python3
"""The tool of the build that makes flags out of the distribution's pictures, with pictures and names of the test's."""
import os
import pathlib
import struct
import subprocess
import tempfile
import unittest
import zlib

TOOL = pathlib.Path(os.environ["KAVARO_BUILD_DIR"]) / "tools" / "make_flags"


def png(width, height, color):
    """The bytes of a picture of one colour."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    rows = (b"\0" + bytes(color) * width) * height
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def size_of(path):
    return struct.unpack(">II", path.read_bytes()[16:24])


class MakeFlags(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="kavaro-test-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.pictures = self.root / "the pictures"
        self.pictures.mkdir()
        self.names = self.root / "names"
        self.names.write_text("")
        self.target = self.root / "out" / "48_countryName"

    def make(self, pictures=None):
        return subprocess.run([TOOL, pictures if pictures is not None else self.pictures, self.names, self.target],
                              capture_output=True, text=True, check=False)

    def made(self):
        return sorted(str(path.relative_to(self.target)) for path in self.target.rglob("*.png"))

    def test_countries_by_their_english_names(self):
        for code in ["fr", "se", "zz"]:
            (self.pictures / f"{code}.png").write_bytes(png(320, 240, (10, 20, 30)))
        result = self.make()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertTrue({"France.png", "Sweden.png"} <= set(self.made()), self.made())
        self.assertFalse([name for name in self.made() if "Unknown" in name])
        self.assertEqual(size_of(self.target / "France.png"), (48, 36))

    def test_further_names(self):
        (self.pictures / "kh.png").write_bytes(png(320, 240, (10, 20, 30)))
        (self.pictures / "_wales.png").write_bytes(png(100, 50, (10, 20, 30)))
        self.names.write_text("# a comment\n\nkh\tCambodja\n_wales\tWales\nnone\tNowhere\n")
        self.assertEqual(self.make().returncode, 0)
        self.assertTrue({"Cambodia.png", "Cambodja.png", "Wales.png"} <= set(self.made()), self.made())
        self.assertNotIn("Nowhere.png", self.made())
        self.assertEqual((self.target / "Cambodia.png").read_bytes(), (self.target / "Cambodja.png").read_bytes())
        self.assertEqual(size_of(self.target / "Wales.png"), (48, 24))

    def test_languages_that_no_country_begins_like(self):
        for code in ["za", "cl"]:
            (self.pictures / f"{code}.png").write_bytes(png(320, 240, (10, 20, 30)))
        self.assertEqual(self.make().returncode, 0)
        self.assertIn("Zulu/South Africa.png", self.made())
        self.assertNotIn("Chinese", [path.name for path in self.target.iterdir()])  # Chile begins like it
        self.assertNotIn("Yoruba", [path.name for path in self.target.iterdir()])  # its country has no picture

    def test_what_was_there_goes(self):
        self.target.mkdir(parents=True)
        (self.target / "Old.png").write_bytes(b"")
        (self.pictures / "fr.png").write_bytes(png(320, 240, (10, 20, 30)))
        self.assertEqual(self.make().returncode, 0)
        self.assertNotIn("Old.png", self.made())

    def test_the_same_every_time(self):
        for code in ["fr", "se", "za"]:
            (self.pictures / f"{code}.png").write_bytes(png(320, 240, (10, 20, 30)))
        contents = []
        for _ in range(2):
            self.assertEqual(self.make().returncode, 0)
            contents.append({name: (self.target / name).read_bytes() for name in self.made()})
        self.assertEqual(*contents)

    def test_no_pictures_at_all(self):
        for pictures in ["", self.root / "missing"]:
            result = self.make(pictures)
            self.assertEqual(result.returncode, 0)
            self.assertIn("iso-flags-png-320x240", result.stderr)
            self.assertTrue(self.target.is_dir())
            self.assertEqual(self.made(), [])

    def test_errors(self):
        (self.pictures / "fr.png").write_bytes(b"no picture")
        result = self.make()
        self.assertEqual(result.returncode, 1)
        self.assertIn("fr.png", result.stderr)
        (self.pictures / "fr.png").unlink()
        for line in ["fr France", "\tFrance", "fr\t", "fr\tFrance/Paris"]:
            self.names.write_text("# first\n" + line + "\n")
            result = self.make()
            self.assertEqual(result.returncode, 1, line)
            self.assertIn(":2: ", result.stderr)
        self.names.unlink()
        self.assertEqual(self.make().returncode, 1)
        self.assertEqual(subprocess.run([TOOL], capture_output=True, check=False).returncode, 2)


if __name__ == "__main__":
    unittest.main()
