"""Converted recordings for the tests of readers."""
import os
import subprocess

FORMS = {
    'plain': (['--shots', '3000'], ['--fragment-size', '700']),
    'waves': (['--shots', '2000', '--waveforms', 'channel', '--calibration', 'waveform'], ['--fragment-size', '1000']),
    'packed': (['--shots', '2000', '--waveforms', 'subpackages'], ['--fragment-size', '1000', '--compress', '4']),
    'words': (['--shots', '2000', '--waveforms', 'hr-compressed', '--calibration', 'range-grid'], []),
    'many': (['--shots', '2000', '--mta', '3'], ['--fragment-size', '3', '--no-waveforms']),
    'shots': (['--shots', '1500', '--form', 'shot-echo'], ['--no-echoes']),
}


def convert(host, folder, name):
    """The K7 file of a form, made on its first use."""
    path = os.path.join(folder, name + '.k7')
    if not os.path.exists(path):
        made, converted = FORMS[name]
        recording = os.path.join(folder, name + '.rxp')
        for command in (['simulate', recording] + made, ['convert', recording, '--out-dir', folder] + converted):
            subprocess.run([host] + command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return path
