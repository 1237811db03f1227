#!/usr/bin/env python3
"""Every key of a text has an entry in every language, and the build made a catalog of each."""
import gettext
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["KAVARO_SOURCE_DIR"])
RESOURCES = pathlib.Path(os.environ["KAVARO_APP_DIR"]) / "Resources"
LANGUAGES = ["de", "es", "fr"]
KEY = re.compile(r'"(kTuv\w+?\d+)"')


def keys_in_sources():
    """The keys that the programs ask for, with the files that do."""
    keys = {}
    for path in (SOURCE / "src").rglob("*.cpp"):
        for key in KEY.findall(path.read_text()):
            keys.setdefault(key, path.name)
    return keys


def entries(language):
    """Key, default words (from the comment above) and text of each entry of a language's source."""
    text = (SOURCE / "po" / f"{language}.po").read_text()
    return re.findall(r'^#\. (.*)\nmsgid "(\w+)"\nmsgstr "(.*)"$', text, re.M)


class Translations(unittest.TestCase):
    def test_the_languages(self):
        self.assertEqual(sorted(path.stem for path in (SOURCE / "po").glob("*.po")), LANGUAGES)

    def test_every_key_has_an_entry_in_every_language(self):
        asked = keys_in_sources()
        self.assertGreater(len(asked), 3)
        for language in LANGUAGES:
            there = {key for _, key, _ in entries(language)}
            self.assertEqual(set(asked) - there, set(), f"without an entry in {language}.po")

    def test_the_languages_have_the_same_keys_and_default_words(self):
        first = [(words, key) for words, key, _ in entries(LANGUAGES[0])]
        self.assertEqual(len({key for _, key in first}), len(first))
        for language in LANGUAGES[1:]:
            self.assertEqual([(words, key) for words, key, _ in entries(language)], first, language)

    def test_texts_are_there_and_keep_their_placeholders(self):
        for language in LANGUAGES:
            found = entries(language)
            source = (SOURCE / "po" / f"{language}.po").read_text()
            self.assertEqual(len(found), source.count("\nmsgid ") - 1, f"{language}.po has entries of another form")
            for words, key, text in found:
                with self.subTest(language=language, key=key):
                    self.assertNotEqual(text.strip(), "")
                    self.assertNotEqual(text, words)
                    self.assertEqual(text.count("%@"), words.count("%@"))
                    self.assertEqual(text.endswith(" ..."), words.endswith(" ..."))

    def test_default_words_in_the_sources_are_those_of_the_entries(self):
        words_of = {key: words for words, key, _ in entries(LANGUAGES[0])}
        for path in (SOURCE / "src").rglob("*.cpp"):
            for key, words in re.findall(r'"(kTuv\w+?\d+)",\s*"((?:[^"\\]|\\.)*)"', path.read_text()):
                self.assertEqual(words_of.get(key), words, f"{key} in {path.name}")

    def test_the_build_made_catalogs(self):
        for language in LANGUAGES:
            with open(RESOURCES / "locale" / language / "LC_MESSAGES" / "kavaro.mo", "rb") as file:
                catalog = gettext.GNUTranslations(file)
            for _, key, text in entries(language):
                self.assertEqual(catalog.gettext(key), text)

    def test_the_program_speaks_them(self):
        def ranges(**locale):
            with tempfile.TemporaryDirectory(prefix="kavaro-test-") as home:
                environment = {"HOME": home, "PATH": os.environ["PATH"], **locale}
                return subprocess.run([RESOURCES.parent / "Contents" / "Linux" / "kavaro", "find", "--list-ranges"],
                                      env=environment, capture_output=True, text=True, encoding="utf-8", check=True).stdout
        english = ranges(LC_ALL="C", LANGUAGE="de")
        self.assertIn("Last Week", english)
        self.assertEqual(ranges(), english)
        self.assertEqual(ranges(LANG="xx_YY.UTF-8"), english)
        self.assertEqual(ranges(LANG="en_US.UTF-8", LANGUAGE="en:de"), english)
        for locale in [{"LANGUAGE": "de"}, {"LANG": "de_DE.UTF-8"}, {"LC_ALL": "C.UTF-8", "LANGUAGE": "de_AT:fr"}]:
            german = ranges(**locale)
            self.assertIn("\n  Letzte Woche", german, locale)
            self.assertNotIn("\n  Last Week", german, locale)
        self.assertIn("Semaine dernière", ranges(LC_MESSAGES="fr_FR.ISO-8859-1"))
        self.assertIn("Última semana", ranges(LANG="es_MX"))


if __name__ == "__main__":
    unittest.main()
