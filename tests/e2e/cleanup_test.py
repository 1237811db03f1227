"""`kavaro languages` and `kavaro nibs` on application bundles, through a real server and embedded."""
import contextlib
import json
import os
import plistlib
import signal
import subprocess
import unittest

import harness

LANGUAGES = {  # by name: the flag's country and the names of folders
    'Chinese': ('China', ['zh_TW', 'zh-Hans']),
    'French': ('France', ['French', 'fr']),
    'German': ('Germany', ['de']),
    'Xx': (None, ['xx']),
}


class Cleanup(harness.Case):
    def setUp(self):
        super().setUp()
        self.environment.update(LC_ALL='en_US.UTF-8', LANG='en_US.UTF-8')
        self.root = self.make('apps')
        self.folders = {name: set() for name in LANGUAGES}
        for app in ('One.app', 'Tools/Two.app', 'h\u00e9 \u5199.app'):
            for name, (_, codes) in LANGUAGES.items():
                for code in codes:
                    self.folders[name].add(self.language(app, code))
            self.language(app, 'en' if app == 'One.app' else 'English')
        self.language('Without.app', 'fr')
        self.nibs = set()
        for app, form in (('Plain.app', None), ('Xml.app', plistlib.FMT_XML), ('Binary.app', plistlib.FMT_BINARY)):
            nib = self.folder_of(app, 'Main.nib')
            for name in ('classes.nib', 'designable.nib', 'info.nib', 'keyedobjects.nib'):
                self.write(os.path.join(nib, name))
            self.nibs |= {os.path.join(nib, name) for name in ('classes.nib', 'designable.nib', 'info.nib')}
            if form:
                seal = plistlib.dumps({'files': {'Resources/Main.nib/info.nib': b'hash'}}, fmt=form)
                self.write(os.path.join(self.root, app, 'Contents', 'CodeResources'), seal)
                self.nibs.remove(os.path.join(nib, 'info.nib'))

    def folder_of(self, app, name):
        path = os.path.join(self.root, app, 'Contents', 'Resources', name)
        os.makedirs(path)
        return path

    def write(self, path, content=b'x' * 5000):
        with open(path, 'wb') as f:
            f.write(content)

    def language(self, app, code):
        path = self.folder_of(app, code + '.lproj')
        self.write(os.path.join(path, 'Localizable.strings'))
        return path

    def expect_languages(self, *options):
        os.sync()  # the room a file takes is known when it is on the disk
        found = json.loads(self.kavaro('languages', '--json', *options, self.root).stdout)
        self.assertEqual([language['language'] for language in found['languages']], sorted(LANGUAGES))
        for language in found['languages']:
            flag, _ = LANGUAGES[language['language']]
            self.assertEqual(language['flag'], flag)
            folders = self.folders[language['language']]
            self.assertEqual({entry['path'] for entry in language['entries']}, folders)
            self.assertEqual(language['logicalSize'], 5000 * len(folders))
            self.assertEqual(language['files'], len(folders))
            for entry in language['entries']:
                self.assertEqual(entry['inode'], os.lstat(entry['path']).st_ino)
        every = set().union(*self.folders.values())
        self.assertEqual(found['folders'], len(every))
        self.assertEqual(found['logicalSize'], 5000 * len(every))
        self.assertEqual(found['physicalSize'],
                         sum(os.lstat(os.path.join(path, 'Localizable.strings')).st_blocks * 512 for path in every))

    def test_languages_through_the_server(self):
        self.expect_languages()

    def test_languages_embedded(self):
        self.expect_languages('--embedded')

    def test_languages_as_people_read_them(self):
        text = self.kavaro('languages', self.root).stdout
        self.assertIn(f'{self.root}: 4 languages in 18 folders could go: ', text)
        self.assertIn('French (France), 6 folders\n', text)
        for path in set().union(*self.folders.values()):
            self.assertIn(f'    {path}/\n', text)
        self.assertNotIn('Without.app', text)
        summary = self.kavaro('languages', '--summary', self.root).stdout
        self.assertNotIn('.lproj', summary)
        self.assertEqual(len(summary.splitlines()), 3 + len(LANGUAGES))

    def test_nibs(self):
        for options in ([], ['--embedded']):
            found = json.loads(self.kavaro('nibs', '--json', *options, self.root).stdout)
            self.assertEqual({entry['path'] for entry in found['nibs']}, self.nibs)
            self.assertEqual(found['logicalSize'], 5000 * len(self.nibs))
        text = self.kavaro('nibs', self.root).stdout
        self.assertIn(f': {len(self.nibs)} nib files could go: ', text)
        for path in self.nibs:
            self.assertIn(f'  {path}\n', text)

    def test_a_signature_that_makes_no_sense(self):
        seal = os.path.join(self.root, 'Xml.app', 'Contents', 'CodeResources')
        self.nibs.add(os.path.join(self.root, 'Xml.app', 'Contents', 'Resources', 'Main.nib', 'info.nib'))
        for content in (b'', b'<plist>' + b'<array>' * 100000 + b'</array>' * 100000 + b'</plist>', b'bplist00\xff'):
            self.write(seal, content)
            found = json.loads(self.kavaro('nibs', '--json', '--embedded', self.root).stdout)
            self.assertEqual({entry['path'] for entry in found['nibs']}, self.nibs, content[:20])

    def test_another_language_of_the_user(self):
        environment = dict(self.environment, LC_ALL='de_DE.UTF-8', LANG='de_DE.UTF-8')
        found = json.loads(self.kavaro('languages', '--json', '--summary', '--embedded', self.root,
                                       environment=environment).stdout)
        names = {language['language'] for language in found['languages']}
        self.assertIn('Deutsch', names)
        self.assertFalse(names & {'English', 'Englisch'})

    def test_languages_are_removed(self):
        french, german = self.folders['French'], self.folders['German']
        result = self.kavaro('languages', self.root, '--remove', 'French', '--yes')
        self.assertEqual(result.stderr, '')
        self.assertIn('6 language folders removed, ', result.stdout)
        for path in french:
            self.assertFalse(os.path.exists(path))
            self.assertIn(f'  {path}/\n', result.stdout)
        for path in german | {self.root + '/Without.app/Contents/Resources/fr.lproj'}:
            self.assertTrue(os.path.isdir(path))
        # Through a link to the folder, and embedded.
        link = os.path.join(self.folder, 'link')
        os.symlink(self.root, link)
        self.kavaro('languages', '--embedded', '--yes', '--remove', 'de', link)
        self.assertFalse(any(os.path.exists(path) for path in german))
        gone = self.kavaro('languages', self.root, '--remove', 'German', '--yes', code=1)
        self.assertIn('no such language could go there', gone.stderr)

    def test_nibs_are_removed(self):
        for options in (['--dry-run'], []):
            self.kavaro('nibs', self.root, '--remove', *options, code=0 if options else 2, stdin=subprocess.DEVNULL)
            self.assertTrue(all(os.path.exists(path) for path in self.nibs))
        sealed = os.path.join(self.root, 'Xml.app/Contents/Resources/Main.nib/info.nib')
        result = self.kavaro('nibs', self.root, '--remove', '--yes')
        self.assertIn(f'{len(self.nibs)} nib files removed, ', result.stdout)
        self.assertFalse(any(os.path.exists(path) for path in self.nibs))
        self.assertTrue(os.path.exists(sealed))

    @unittest.skipUnless(os.geteuid() == 0, 'root alone becomes others')
    def test_what_an_ordinary_user_may_not_remove_is_said(self):
        app = harness.copy_programs(self.make('app'))
        os.chmod(self.folder, 0o755)
        os.chown(self.home, 65534, 65534)
        theirs = self.root + '/One.app/Contents/Resources'
        result = subprocess.run(['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups', app, 'languages',
                                 '--yes', '--remove', 'German', theirs], env=self.environment, capture_output=True,
                                text=True, stdin=subprocess.DEVNULL, cwd='/', timeout=harness.PATIENCE)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn(f'kavaro: {theirs}/de.lproj: permission denied.\n', result.stderr)
        self.assertIn('0 language folders removed, 0 bytes freed.\n', result.stdout)

    def send_interruption(self, client):
        client.send_signal(signal.SIGINT)
        harness.wait_until(lambda: client.poll() is not None or not self.is_pending(client.pid), 'it is caught')

    @staticmethod
    def waits(pid):
        """How often it has begun to wait for something."""
        with open(f'/proc/{pid}/status') as f:
            return next(int(line.split()[1]) for line in f if line.startswith('voluntary_ctxt_switches'))

    @staticmethod
    def is_pending(pid):
        with open(f'/proc/{pid}/status') as f:
            return any(line.startswith(('SigPnd', 'ShdPnd')) and int(line.split()[1], 16) for line in f)

    def test_a_second_interruption_ends_the_server(self):
        def servers():
            return [pid for pid in harness.children(client.pid)
                    if harness.name_of(pid) == 'kavarod' and harness.is_alive(pid)]
        # The client waits at a full pipe, with its plan, when its server is stopped.
        reading, writing = os.pipe()
        os.set_blocking(writing, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(writing, b'.' * 4096)
        os.set_blocking(writing, True)
        client = self.start([harness.KAVARO, 'languages', self.root, '--remove', 'French', '--yes'], stdout=writing,
                            stderr=subprocess.PIPE, text=True)
        os.close(writing)
        harness.wait_until(lambda: len(servers()) == 2, 'a server is made ready for the removal')
        harness.wait_until(lambda: len(servers()) == 1, 'the other one ends')
        server = servers()[0]
        os.kill(server, signal.SIGSTOP)
        with open(reading, 'rb') as out:
            while b'that this frees' not in out.readline():
                pass
            before = self.waits(client.pid)
            harness.wait_until(lambda: self.waits(client.pid) > before + 10, 'it waits for the answer')
            self.send_interruption(client)
            self.assertIsNone(client.poll(), 'a call that was made is waited for')
            self.send_interruption(client)
            _, err = client.communicate(timeout=harness.PATIENCE)
            self.assertEqual(client.returncode, 130, err)
            self.assertFalse(harness.is_alive(server))
            self.assertIn('kavaro: interrupted, 6 language folders left. The server was ended at its work', err)
            self.assertEqual(out.read(), b'0 language folders removed, 0 bytes freed.\n')

    def test_wrong_usage(self):
        self.assertIn('kavaro languages --help', self.kavaro('languages', code=2).stderr)
        self.assertIn('kavaro nibs --help', self.kavaro('nibs', '--summary', self.root, code=2).stderr)
        self.kavaro('languages', os.path.join(self.root, 'absent'), code=1)


if __name__ == '__main__':
    harness.main()
