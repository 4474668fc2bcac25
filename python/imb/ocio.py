"""Colour management over the OpenColorIO configuration named by $OCIO.

The configuration is loaded on the first call of any function here and again
on reload(); without $OCIO there is none and every query gives its empty
answer ([], '', None). Processor objects transform float32 pixels in place
and turn stale at reload(); change callbacks (Python callables) are called
after every reload.
"""

from ._imb import ocio as _ocio

config_path = _ocio.config_path
is_env_set = _ocio.is_env_set
reload = _ocio.reload
add_change_callback = _ocio.add_change_callback
remove_change_callback = _ocio.remove_change_callback
color_spaces = _ocio.color_spaces
roles = _ocio.roles
looks = _ocio.looks
displays = _ocio.displays
views = _ocio.views
default_display = _ocio.default_display
default_view = _ocio.default_view
display_view_color_space = _ocio.display_view_color_space
display_view_looks = _ocio.display_view_looks
display_view_transform = _ocio.display_view_transform
viewing_rules = _ocio.viewing_rules
space_info = _ocio.space_info
well_known_spaces = _ocio.well_known_spaces
parse_color_space = _ocio.parse_color_space
image_color_space = _ocio.image_color_space
tag_color_space = _ocio.tag_color_space
Processor = _ocio.Processor

__all__ = [name for name in dir() if not name.startswith("_")]
