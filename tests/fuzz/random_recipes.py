#!/usr/bin/env python3
"""Random recipes far from what is usual, under the staged scheme: classes of outcomes, with an example of each.

    random_recipes.py LIBRARY [--count 2000] [--seed 0] [--keep FOLDER] [--scheme staged]

Temperatures from 600 to 1800 K, pressures from 1e3 to 1e5 Pa, transport layers from 1 to 20 mm, flows over four
decades, stages without metals or without ammonia, all transport models, kinetic constants over decades. A run must end
with a text, or with result 0 and rows that are finite, rise in time and hold fractions from 0 to 1. Everything else,
and a run that takes longer than 5 s, is a fault: the program then ends with 1. FOLDER gets the faulty recipes, up to
20 of each class, and one recipe of each other class.
"""
import argparse
import collections
import ctypes
import math
import multiprocessing
import os
import random
import re
import signal
import sys
import tempfile
import time

SLOW = 5.0  # s; a run must not take longer
LIMIT = 20.0  # s; a run is ended then
FRACTION_SLACK = 1e-6
FLOWS = ("TMIn", "TMGa", "TEGa", "TMAl", "N2", "NH3", "H2")
CARRIERS = ("N2", "NH3", "H2")
METALS = ("TMIn", "TMGa", "TEGa", "TMAl")
CONSTANTS = {  # A, Ta, Tn
    "Kd_In": (1e13, 23200, 0), "K_InN_plus": (5e20, 26700, 0), "Kd_Ga": (1e13, 32500, 0),
    "K_GaN_plus": (1e18, 22000, 0), "Kd_Al": (1e13, 39500, 0), "K_AlN_plus": (1e18, 22000, 0),
    "Kd_N2": (5e20, 19700, 0), "Kd_H2": (5e20, 13900, 0)}


def decades(r, low, high):
    """A number between the powers low and high of ten, evenly over the decades."""
    return 10.0 ** r.uniform(low, high)


def ranged(tag, value, end):
    """An element with val and end."""
    return f'<{tag} val="{value:.6g}" end="{end:.6g}"/>'


def random_flows(r, kind):
    """Flows of one stage, sccm."""
    flows = dict.fromkeys(FLOWS, 0.0)
    for gas in CARRIERS:
        if r.random() < 0.75:
            flows[gas] = decades(r, 0.5, 4.5)
    for metal in METALS:
        if r.random() < 0.5:
            flows[metal] = decades(r, -3, 1)
    if kind == "no metals":
        flows.update(dict.fromkeys(METALS, 0.0))
    elif kind == "no ammonia":
        flows["NH3"] = 0.0
    elif kind == "one flow":
        only = r.choice(FLOWS)
        flows = {name: (decades(r, -1, 4) if name == only else 0.0) for name in FLOWS}
    if not any(flows.values()):
        flows["N2"] = 1000.0
    return flows


def stage_xml(r, tag, kind, transport, reactor, before):
    """One stage; before holds T, P and the flows of the stage before, or is empty."""
    if not before or r.random() < 0.7:
        before = {"T": r.uniform(600, 1800), "P": decades(r, 3, 5), "flows": random_flows(r, kind)}
    T, P, flows = before["T"], before["P"], before["flows"]
    T_end = T if r.random() < 0.6 else min(1800, max(600, T + r.uniform(-300, 300)))
    P_end = P if r.random() < 0.8 else decades(r, 3, 5)
    ends = {name: q if r.random() < 0.8 else r.choice((0.0, q * decades(r, -1, 1))) for name, q in flows.items()}
    if not any(ends.values()):
        ends = flows
    text = f'<{tag}><name val="{kind}"/><tau val="{decades(r, -1, 3.3):.5g}"/>' + ranged("T", T, T_end)
    text += ranged("P", P, P_end) + '<dislocations><disl_model val="given"/><rho_D val="5e8" end="5e8"/></dislocations>'
    if transport == "fixed_thickness":
        text += f'<delta val="{decades(r, -3, -1.7):.5g}"/>'
    elif transport == "InGaN_GR_X":
        text += f'<GR_average val="{decades(r, -3, 0.5):.5g}"/><XIn_average val="{r.uniform(1e-10, 0.5):.5g}"/>'
        text += f'<XAl_average val="{r.uniform(1e-10, 0.5):.5g}"/>'
    elif reactor == "TDR":
        text += ranged("omega_TDR", decades(r, 1, 3.3), decades(r, 1, 3.3))
    text += "<gas_species><Q>" + "".join(ranged(name, flows[name], ends[name]) for name in FLOWS)
    before.update(T=T_end, P=P_end, flows=ends)
    return text + f"</Q></gas_species></{tag}>\n", before


def recipe_xml(seed, scheme):
    """Kind and text of the recipe of a seed."""
    r = random.Random(f"recipe {seed}")
    kind = r.choice(("plain", "plain", "plain", "no metals", "no ammonia", "one flow", "constants", "pauses"))
    stress = r.random() < 0.5
    transport = r.choice(("fixed_thickness", "fixed_thickness", "thick_GaN", "InGaN_GR_X"))
    reactor = r.choice(("CCS", "TDR", "HFR"))
    material = r.choice(("InGaN", "AlGaN", "AlInN", "AlInGaN"))
    text = f'<?xml version="1.0"?>\n<!-- {kind}, seed {seed} -->\n<NonstSurfChem><material val="{material}"/>\n'
    text += f'<chemistry><vacancy_model val="{r.choice(("vacancy_In", "vacancy_none"))}"/>\n'
    for name, (A, Ta, Tn) in CONSTANTS.items():
        if kind == "constants":
            A, Ta = A * decades(r, -4, 4), Ta * r.uniform(0.7, 1.3)
            if r.random() < 0.1:
                A = 0.0
        text += f'<{name} A="{A:.6g}" Ta="{Ta:.6g}" Tn="{Tn}"/>'
    text += "</chemistry>\n<stress>"
    if stress:
        text += f'<model val="V_dislocation"/><cut_angle val="0.2"/><V_angle_05 val="{r.uniform(1, 60):.4g}"/>'
        text += f'<X_ref val="{r.uniform(0, 1):.3g}"/>'
    else:
        text += '<model val="none"/>'
    text += '</stress>\n<integration><scheme val="' + scheme + f'"/></integration><transport><model val="{transport}"/>'
    if transport == "thick_GaN":
        text += f'<parameters><reactor val="{reactor}"/><GR_ref val="{decades(r, -2, 1):.4g}"/>'
        text += f'<P_ref val="{decades(r, 3, 5):.5g}"/><T_ref val="{r.uniform(900, 1400):.5g}"/>'
        text += '<omega_TDR_ref val="1000"/>'
        text += f'<Q_ref><N2 val="1000"/><H2 val="8000"/><NH3 val="5000"/><TMGa val="{decades(r, -2, 1):.4g}"/></Q_ref></parameters>'
    text += '</transport>\n<pre_stages><t0 val="0"/><n_pre_stages val="1"/><pre_stage_1><name val="template"/>'
    x_In, x_Al = r.choice(((0, 0), (0, 0), (0, 1), (0.1, 0), (0, 0.3)))
    text += '<tau val="3600"/><GR_average val="2"/><thickness val="2000"/>'
    text += f'<X_In_average val="{x_In}"/><X_Ga_average val="{1 - x_In - x_Al:.4g}"/><X_Al_average val="{x_Al}"/>'
    text += f'<dislocations><disl_model val="given"/><rho_D val="{decades(r, 5, 11):.4g}"/></dislocations>'
    text += f'<stress_state val="{r.choice((3.189, 3.187, 3.112, r.uniform(3.0, 3.6))):.6g}"/></pre_stage_1></pre_stages>\n'
    count = r.randint(1, 6)
    body, before = "", {}
    for i in range(1, count + 1):
        stage_kind = "no metals" if kind == "pauses" and i % 2 == 0 else kind
        if stage_kind != kind:
            before = {}
        stage, before = stage_xml(r, f"stage_{i}", stage_kind, transport, reactor, dict(before))
        body += stage
    text += f'<process_stages><n_stages val="{count}"/>\n{body}</process_stages>\n'
    return kind, text + '<post_stages><n_post_stages val="0"/></post_stages></NonstSurfChem>\n'


def fault_of_rows(path):
    """What is wrong with a result file of result 0; empty when nothing is."""
    rows = 0
    low, high, t_before = 0.0, 1.0, -math.inf
    with open(path, encoding="utf-8", errors="replace") as file:
        heads = False
        for line in file:
            if line.startswith("#time"):
                heads = True
                continue
            words = line.split()
            if not heads:
                if re.search(r" -?(nan|inf)", line.rsplit('"', 1)[-1]):
                    return "0 with a layer thickness that is not finite"
                continue
            rows += 1
            for word in words:
                if not math.isfinite(float(word)):
                    return "0 with numbers that are not finite"
            if rows <= 2:
                continue  # of the pre-stage
            fractions = [float(word) for word in words[3:6]]
            low, high = min(low, *fractions), max(high, *fractions)
            if abs(sum(fractions) - 1.0) > FRACTION_SLACK:
                return "0 with a sum of fractions that is not 1"
            if float(words[0]) < t_before:
                return "0 with times that fall"
            t_before = float(words[0])
    if rows < 4:
        return "0 without rows"
    if low < -FRACTION_SLACK or high > 1.0 + FRACTION_SLACK:
        far = low < -1e-3 or high > 1.001
        return "0 with fractions " + ("far " if far else "a little ") + "out of range"
    return ""


def run(job):
    """Runs one recipe in a separate process. Returns seed, kind, outcome, whether it is a fault, seconds, rows."""
    library, seed, scheme = job
    kind, recipe = recipe_xml(seed, scheme)
    with tempfile.TemporaryDirectory() as folder:
        path, result, answer = (os.path.join(folder, name) for name in ("recipe.xml", "result.txt", "answer"))
        with open(path, "w", encoding="ascii") as file:
            file.write(recipe)
        start = time.monotonic()
        pid = os.fork()
        if pid == 0:
            text = ctypes.create_string_buffer(2048)
            code = ctypes.CDLL(library).runSurfChem(path.encode(), result.encode(), text)
            with open(answer, "w", encoding="utf-8") as file:
                file.write((text.value.decode("utf-8", "replace") or "(empty text)") if code else "")
            os._exit(0)
        while True:
            done, status = os.waitpid(pid, os.WNOHANG)
            if done:
                break
            if time.monotonic() - start > LIMIT:
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)
                return seed, kind, f"longer than {LIMIT:.0f} s", True, LIMIT
            time.sleep(0.001)
        seconds = time.monotonic() - start
        if status:
            return seed, kind, f"the process ended with status {status}", True, seconds
        with open(answer, encoding="utf-8") as file:
            text = file.read()
        if text:
            text = re.sub(r"stage_\d+|\"[^\"]*\"", "...", text)
        fault = "" if text else fault_of_rows(result)
        if seconds > SLOW:
            return seed, kind, f"longer than {SLOW:.0f} s, then " + (text or fault or "right"), True, seconds
        return seed, kind, text or fault or "right", bool(fault) or text == "(empty text)", seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("library")
    parser.add_argument("--count", type=int, default=2000)
    parser.add_argument("--seed", type=int, default=0, help="number of the first recipe")
    parser.add_argument("--keep", help="folder of the examples")
    parser.add_argument("--scheme", default="staged")
    a = parser.parse_args()
    jobs = [(os.path.abspath(a.library), seed, a.scheme) for seed in range(a.seed, a.seed + a.count)]
    classes, faults = collections.defaultdict(list), set()
    with multiprocessing.Pool() as pool:
        for seed, kind, outcome, is_fault, seconds in pool.imap_unordered(run, jobs):
            classes[outcome].append((seed, kind, seconds))
            if is_fault:
                faults.add(outcome)
    if a.keep:
        os.makedirs(a.keep, exist_ok=True)
        for outcome, members in classes.items():
            name = re.sub(r"[^A-Za-z0-9]+", "_", outcome).strip("_")[:60]
            for seed, _, _ in sorted(members)[:20 if outcome in faults else 1]:
                with open(os.path.join(a.keep, f"{name}_{seed}.xml"), "w", encoding="ascii") as file:
                    file.write(recipe_xml(seed, a.scheme)[1])
    for outcome, members in sorted(classes.items(), key=lambda item: -len(item[1])):
        kinds = collections.Counter(kind for _, kind, _ in members)
        seeds = " ".join(str(seed) for seed, _, _ in sorted(members)[:8])
        print(f"{'FAULT ' if outcome in faults else ''}{len(members):6} {outcome}; {dict(kinds)}; longest "
              f"{max(s for _, _, s in members):.2f} s; seeds {seeds}")
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
