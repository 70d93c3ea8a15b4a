#!/usr/bin/python3
"""The page out/listen.html as a visitor meets it, in Chromium without a window: what it plays and saves is what voice_link
writes, its controls do what they say, and it asks nothing of the network. Leaves screenshots in build/listen.
usage: listen.py PAGE VOICE_LINK CLIPS_DIR
"""
import array
import math
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest
import wave

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

PAGE, VOICE_LINK, CLIPS = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
SWITCHES = ('headless=new no-sandbox disable-gpu disable-quic no-first-run disable-background-networking '
            'disable-component-update disable-sync use-fake-device-for-media-stream use-fake-ui-for-media-stream')

# What an audio worklet of the page plays, in the shortest time: the speech once, from its start. Resolves to the number
# of samples that differ from what the page draws and saves.
PLAYED = '''
    const done = arguments[0];
    const heard = page.take.signals[TREATMENTS.indexOf(settings.hear)];
    const context = new OfflineAudioContext(1, heard.length, settings.rate);
    page.playing = true;
    makePlayer(context).then(async (player) => {
        player.connect(context.destination);
        const played = (await context.startRendering()).getChannelData(0);
        done(heard.filter((sample, i) => sample !== played[i] * 32768).length);
    });
'''

# Goes over to the module for browsers without vectors.
PLAIN = '''
    const done = arguments[0];
    unpack('wasm-plain').then(async (plain) => {
        if (page.wasm.byteLength === plain.byteLength) return done('the module with vectors was not taken');
        page.wasm = plain;
        page.instance = (await WebAssembly.instantiate(plain)).instance;
        page.instance.exports._initialize();
        page.formats = null;
        await render();
        done('');
    });
'''

# Plays once while the choice goes from concealed to received within a loud burst. Resolves to the first and the last time
# after that, in seconds, at which what is heard is neither.
SWITCHED = '''
    const done = arguments[0];
    const {lost, signals: [, received, , concealed]} = page.take;
    const loud = (n) => concealed.subarray(120 * n, 120 * n + 60).some((sample) => Math.abs(sample) > 2000);
    const at = 120 * lost.findIndex((_, n) => n > 100 && lost[n] && lost[n + 1] && lost[n + 2] && loud(n));
    const context = new OfflineAudioContext(1, received.length, settings.rate);
    page.playing = true;
    makePlayer(context).then(async (player) => {
        player.connect(context.destination);
        context.suspend(at / settings.rate).then(() => {
            player.port.postMessage({hear: 1});
            setTimeout(() => context.resume(), 200);
        });
        const played = (await context.startRendering()).getChannelData(0).map((sample) => sample * 32768);
        const other = [...played.keys()].filter((i) => played[i] !== (i < at ? concealed : received)[i]);
        done([other[0], other.at(-1)].map((i) => (i - at) / settings.rate));
    });
'''

# Keeps the audio contexts that the page makes.
CONTEXTS = '''
    window.contexts = [];
    window.AudioContext = class extends AudioContext {
        constructor(options) {
            super(options);
            contexts.push(this);
        }
    };
'''


class Listen(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.work = pathlib.Path(self.folder.name)
        options = webdriver.ChromeOptions()
        for switch in SWITCHES.split():
            options.add_argument(f'--{switch}')
        options.add_experimental_option('prefs', {'download.default_directory': self.folder.name})
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
        self.browser = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)

    def tearDown(self):
        messages = self.browser.get_log('browser')
        requests = [entry['message'] for entry in self.browser.get_log('performance') if 'requestWillBeSent' in entry['message']]
        self.browser.quit()
        self.folder.cleanup()
        self.assertEqual(messages, [])
        self.assertTrue(requests)
        self.assertFalse([r for r in requests if '"url":"file:' not in r and '"url":"data:' not in r], 'the network was asked')

    def open(self, settings=''):
        self.browser.get('about:blank')
        self.browser.get(f'{PAGE.as_uri()}{settings}')
        self.until(lambda: self.find('save').is_enabled())

    def until(self, condition):
        WebDriverWait(self.browser, 20, 0.05).until(lambda _: condition())

    def find(self, name):
        return self.browser.find_element(By.ID, name)

    def play_time(self):
        return float(self.find('time').text.split()[0])

    def press(self, keys):
        self.browser.find_element(By.TAG_NAME, 'body').send_keys(keys)

    def saved(self):
        self.until(lambda: self.find('save').is_enabled())
        self.find('save').click()
        self.until(lambda: list(self.work.glob('*.wav')))
        file, = self.work.glob('*.wav')
        content = file.read_bytes()
        file.unlink()
        return content

    def samples(self, treatment):
        return self.browser.execute_script('return Array.from(page.take.signals[arguments[0]])', treatment)

    def test_plays_and_saves_what_voice_link_writes(self):
        stereo = self.work / 'stereo.wave'
        with wave.open(str(CLIPS / 'speech_16k.wav')) as clip, wave.open(str(stereo), 'wb') as file:
            speech = array.array('h', clip.readframes(clip.getnframes()))
            file.setparams(clip.getparams()._replace(nchannels=2))
            file.writeframes(array.array('h', [part for s in speech for part in (s * 7 // 10, s * -3 // 10)]))
        for loss, burst, seed, hear, conceal, file, vectors in [
                ('10', '3', '1', 'concealed', 'on', None, True),
                ('2', '1', '7', 'repeated', 'off', None, True),
                ('30', '4.5', '4294967295', 'concealed', 'on', stereo, False),
                ('50', '1', '5', 'received', 'mute', stereo, True)]:
            with self.subTest(loss=loss, seed=seed):
                self.open(f'#rate=16000&loss={loss}&burst={burst}&seed={seed}&hear={hear}')
                if file:
                    self.find('file').send_keys(str(file))
                    self.until(lambda: self.find('source').text == file.name)
                    self.until(lambda: self.browser.execute_script('return page.take.lost === page.lost'))
                if not vectors:
                    self.assertEqual(self.browser.execute_async_script(PLAIN), '')
                output = self.work / 'link.out'
                subprocess.run([VOICE_LINK, 'link', file or CLIPS / 'speech_16k.wav', output, '--rate', '16000', '--loss', loss,
                                '--burst', burst, '--seed', seed, '--conceal', conceal], check=True, stdout=subprocess.PIPE)
                self.assertTrue(self.saved() == output.read_bytes(), 'the saved file is not voice_link\'s')
                self.assertEqual(self.browser.execute_async_script(PLAYED), 0, 'samples played that are not those saved')

    def test_codec(self):
        self.open('#rate=8000&loss=0')
        sent, concealed = self.samples(0), self.samples(3)
        noise = sum((a - b) ** 2 for a, b in zip(sent, concealed))
        self.assertGreater(10 * math.log10(sum(a * a for a in sent) / noise), 12, 'signal to noise, dB')
        self.open('#rate=8000&loss=10&burst=2&hear=concealed')
        self.assertEqual(self.browser.execute_async_script(PLAYED), 0)

    def test_switch_is_in_step_and_short(self):
        self.open('#loss=30&burst=5&hear=concealed')
        first, last = self.browser.execute_async_script(SWITCHED)
        self.assertGreaterEqual(first, 0)
        self.assertLess(last, 0.02)
        self.assertGreater(last - first, 0.005, 'no cross-fade')

    def test_controls(self):
        self.open()
        self.press(' ')
        self.until(lambda: self.play_time() > 0.3)
        counts = self.find('counts').text
        self.find('loss').send_keys(Keys.ARROW_RIGHT * 8)
        self.until(lambda: self.find('counts').text != counts)
        self.find('burst').send_keys(Keys.HOME)
        self.until(lambda: ', 1.' in self.find('counts').text)
        self.press('1')
        self.until(lambda: 'loss=14&burst=1&seed=1&hear=sent' in self.browser.current_url)
        self.assertTrue(self.saved() == (CLIPS / 'speech_16k.wav').read_bytes())
        self.press('++' + Keys.ARROW_RIGHT)
        self.assertLess(self.browser.execute_script('return (page.view.last - page.view.first) / page.speech.length'), 0.3)
        self.browser.find_element(By.CSS_SELECTOR, 'input[value="8000"]').click()
        self.until(lambda: 'frames of 3.75 ms' in self.find('counts').text)
        before = self.play_time()
        self.until(lambda: self.play_time() > before + 0.2)
        self.press(' ')
        self.assertEqual(self.find('play').text, 'Play')

    def test_quick_hands(self):
        # Presses, rates and files that come faster than the audio opens and a file is decoded.
        self.browser.execute_cdp_cmd('Page.addScriptToEvaluateOnNewDocument', {'source': CONTEXTS})
        slow, fast = (self.work / name for name in ('slow.wave', 'fast.wave'))
        fast.write_bytes((CLIPS / 'speech_16k.wav').read_bytes())
        with wave.open(str(slow), 'wb') as file:
            file.setparams((2, 2, 48000, 0, 'NONE', ''))
            file.writeframes(bytes(4 * 48000 * 30))
        self.open()
        self.find('spectrogram').click()
        self.browser.execute_script('''
            for (const name of ['#play', '#play', '#play', '[value="8000"]', '[value="16000"]', '[value="8000"]'])
                document.querySelector(name).click();
        ''')
        self.until(lambda: self.play_time() > 0.3)
        open_ones = 'return contexts.filter((context) => context.state !== "closed").map((context) => context.sampleRate)'
        self.assertEqual(self.browser.execute_script(open_ones), [8000])
        self.find('file').send_keys(str(slow))
        self.find('file').send_keys(str(fast))
        self.until(lambda: self.find('source').text == fast.name)
        time.sleep(1)
        self.assertEqual(self.find('source').text, fast.name)
        self.find('seed').send_keys(Keys.BACKSPACE + '-5' + Keys.ENTER)
        self.until(lambda: 'seed=0' in self.browser.current_url)
        self.assertEqual(self.find('seed').get_attribute('value'), '0')

    def test_what_is_no_sound(self):
        text = self.work / 'notes.txt'
        text.write_text('not a sound\n')
        self.open()
        self.find('file').send_keys(str(text))
        self.until(lambda: self.find('problem').is_displayed())
        self.assertEqual(self.find('problem').text, 'notes.txt is not a sound that this browser can decode.')
        self.assertEqual(self.find('source').text, 'the clip')

    def test_microphone(self):
        self.open('#loss=20')
        begun = time.monotonic()
        self.find('microphone').click()
        self.until(lambda: self.play_time() > 1)
        self.browser.find_element(By.CSS_SELECTOR, 'input[value="8000"]').click()  # ends the recording
        self.until(lambda: self.find('source').text == 'your recording')
        seconds = self.browser.execute_script('return page.speech.length / 8000')
        self.assertTrue(1 < seconds < time.monotonic() - begun, f'{seconds} s recorded')
        self.until(lambda: self.find('save').is_enabled())
        self.assertGreater(max(self.samples(0)), 1000)

    def test_pictures(self):
        for name, width, height in [('desktop', 1200, 900), ('phone', 390, 1100)]:
            for scheme in ['light', 'dark']:
                self.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride',
                                             {'width': width, 'height': height, 'deviceScaleFactor': 2, 'mobile': name == 'phone'})
                self.browser.execute_cdp_cmd('Emulation.setEmulatedMedia',
                                             {'features': [{'name': 'prefers-color-scheme', 'value': scheme}]})
                self.open()
                overflow = 'return document.documentElement.scrollWidth - document.documentElement.clientWidth'
                self.assertLessEqual(self.browser.execute_script(overflow), 0, 'the page is wider than the screen')
                if scheme == 'dark':
                    self.press('++')
                    self.find('spectrogram').click()
                time.sleep(0.5)
                self.browser.save_screenshot(str(PAGE.parent.parent / f'build/listen/{name}-{scheme}.png'))


unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
