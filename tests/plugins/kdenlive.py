#!/usr/bin/env python3
"""Kdenlive's descriptions against the effects themselves, asked as a host asks them.
kdenlive.py FILTER MIXER FOLDER"""
import ctypes
import sys
import xml.etree.ElementTree as tree

BOOL, NUMBER, COLOUR, TEXT = 0, 1, 2, 4
KINDS = {"bool": BOOL, "animated": NUMBER, "color": COLOUR, "list": TEXT}


class PluginInfo(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("author", ctypes.c_char_p), ("type", ctypes.c_int),
                ("model", ctypes.c_int), ("frei0r", ctypes.c_int), ("major", ctypes.c_int),
                ("minor", ctypes.c_int), ("params", ctypes.c_int), ("about", ctypes.c_char_p)]


class ParamInfo(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("type", ctypes.c_int), ("about", ctypes.c_char_p)]


def check(binary, path, tag):
    effect = ctypes.CDLL(binary)
    effect.f0r_init()
    info = PluginInfo()
    effect.f0r_get_plugin_info(ctypes.byref(info))
    effect.f0r_construct.restype = ctypes.c_void_p
    instance = ctypes.c_void_p(effect.f0r_construct(4, 4))
    root = tree.parse(path).getroot()
    assert root.get("tag") == root.get("id") == tag, path
    rows = root.findall("parameter")
    assert len(rows) == info.params, f"{path}: {len(rows)} of {info.params} parameters"
    for index, row in enumerate(rows):
        param = ParamInfo()
        effect.f0r_get_param_info(ctypes.byref(param), index)
        where = f"{path}: parameter {index} ({param.name.decode()})"
        assert row.get("name") == str(index), where
        assert row.find("name").text == param.name.decode(), where
        assert KINDS[row.get("type")] == param.type, where
        if param.type in (BOOL, NUMBER):
            value = ctypes.c_double()
            effect.f0r_get_param_value(instance, ctypes.byref(value), index)
            assert abs(float(row.get("default")) - value.value) < 1e-6, where
        if param.type == TEXT:
            texts = row.get("paramlist").split(";")
            labels = row.find("paramlistdisplay").text.split(",")
            assert len(texts) == len(labels) and row.get("default") in texts, where
            for text in texts:  # each is taken, and said back
                effect.f0r_set_param_value(instance, ctypes.byref(ctypes.c_char_p(text.encode())), index)
                now = ctypes.c_char_p()
                effect.f0r_get_param_value(instance, ctypes.byref(now), index)
                assert now.value.decode() == text, f"{where}: {text}"
    print(f"{path}: {len(rows)} parameters as the effect has them")


check(sys.argv[1], sys.argv[3] + "/effects/frei0r_orvanite.xml", "frei0r.orvanite")
check(sys.argv[2], sys.argv[3] + "/transitions/frei0r_orvanite_mix.xml", "frei0r.orvanite_mix")
