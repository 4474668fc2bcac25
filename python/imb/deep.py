"""Deep images: channel lists, sample lists, the pixel accumulator,
compressors, filters and the JSON form of sample lists.

Sample lists show their planes (zfront, zback, flags, coverage and each
channel) as numpy views without a copy. A DeepPixel gathers samples, from
several threads if need be, and closes them into one list with a Compressor.
"""

import warnings as _warnings

from ._imb import deep as _deep

ChannelList = _deep.ChannelList
SampleList = _deep.SampleList
DeepPixel = _deep.DeepPixel
Compressor = _deep.Compressor
Filter = _deep.Filter
compressor_names = _deep.compressor_names
dumps = _deep.dumps


class JSONWarning(UserWarning):
    """A problem in a deep sample list's JSON that left the list usable."""


def loads(text, channels):
    """Reads a sample list from its JSON form (an array of key tokens and
    values, or the same keys as an object), matching channel data to
    `channels` (a ChannelList) by name.

    Problems that leave a usable list (an unknown channel or key, an array of
    the wrong length) are issued as JSONWarning; a missing or repeated
    "sampleCount", or malformed JSON, raises imb.Error.
    """
    result, problems = _deep.loads(text, channels)
    for message in problems:
        _warnings.warn(message, JSONWarning, stacklevel=2)
    return result


__all__ = ["ChannelList", "SampleList", "DeepPixel", "Compressor", "Filter", "compressor_names", "dumps",
           "loads", "JSONWarning"]
