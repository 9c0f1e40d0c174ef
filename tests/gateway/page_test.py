"""The page in a real browser: every form plays, pictures never step back, sound and picture stay together, close to live.

PAGE_SECONDS (15) is how long it is watched; the screenshot stays in PAGE_ARTEFACTS, or is thrown away.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from gateway import Gateway

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, 'scripts'))
import serve_clip  # noqa: E402

SECONDS = float(os.environ.get('PAGE_SECONDS', '15'))


class Page(unittest.TestCase):
    def test_every_form_plays(self):
        folder = tempfile.mkdtemp(prefix='gateway-page-')
        artefacts = os.environ.get('PAGE_ARTEFACTS', folder)
        os.makedirs(artefacts, exist_ok=True)
        screenshot = os.path.join(artefacts, 'page.png')
        try:
            # Long enough not to come round while it is watched.
            clip = serve_clip.make(os.path.join(folder, 'clock.mp4'), seconds=SECONDS + 60,
                                   encoder=('libx264', '-preset', 'ultrafast', '-tune', 'zerolatency'))
            with Gateway(f'clock={clip}') as gateway:
                gateway.wait_for(lambda s: s['clock']['pictures'] > 60)
                done = subprocess.run(
                    ['node', os.path.join(os.path.dirname(__file__), 'watch_page.mjs'),
                     os.environ.get('BROWSER_MODULES', os.path.join(ROOT, 'build', 'browser')), gateway.url(''),
                     str(SECONDS), screenshot],
                    capture_output=True, text=True, timeout=SECONDS + 240, check=False)
            self.assertEqual(done.returncode, 0, done.stderr)
            seen = json.loads(done.stdout)
            print(json.dumps(seen, indent=1))
            self.assertGreater(os.path.getsize(screenshot), 20000)
            self.assertEqual(seen['errors'], [])
            self.assertEqual(seen['troubles'], [])
            self.assertEqual(seen['foreign'], [])  # no request leaves the host
            self.assertIn('H.264 640x360 · AAC 48000 Hz, 2 ch', seen['about'].replace('1 ch', '2 ch'))
            forms = {one['form']: one for one in seen['forms']}
            self.assertEqual(set(forms), {'ws', 'flv', 'ts', 'hls'})
            for name, form in forms.items():
                with self.subTest(name):
                    self.assertEqual(form['back'], 0)
                    self.assertEqual(form['wrongFlash'], 0)
                    # Most of the pictures, on a machine that decodes four streams without help.
                    self.assertGreater(form['pictures'], SECONDS * 25 * 0.5)
                    self.assertGreater(form['beeps'], SECONDS * 0.6)
                    self.assertLess(abs(form['soundBehindPicture']), 50)
                    self.assertLess(form['latency'], 3 if name == 'hls' else 1)
        finally:
            shutil.rmtree(folder, ignore_errors=True)


if __name__ == '__main__':
    unittest.main(verbosity=2)
