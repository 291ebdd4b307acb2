#!/usr/bin/env python3
"""Random recipes as a process engineer would write them, by family and seed.

    plausible.py OUT_DIR [--count 40] [--seed dev] [--family mqw ...] [--scheme staged]

Writes OUT_DIR/FAMILY_STRESS_NUMBER.xml, where STRESS is 0 (none) or 1 (V_dislocation). The same arguments give the same
files. The recipes have the features of real ones: interruptions, ramps, changes of the carrier gas, and hot stages without
metals.
"""
import argparse
import os
import random

CHEMISTRY = """<chemistry><vacancy_model val="vacancy_In"/>
<Kd_In A="1e13" Ta="23200" Tn="0"/><K_InN_plus A="5e20" Ta="26700" Tn="0"/>
<Kd_Ga A="1e13" Ta="32500" Tn="0"/><K_GaN_plus A="1e18" Ta="22000" Tn="0"/>
<Kd_Al A="1e13" Ta="39500" Tn="0"/><K_AlN_plus A="1e18" Ta="22000" Tn="0"/>
<Kd_N2 A="5e20" Ta="19700" Tn="0"/><Kd_H2 A="5e20" Ta="13900" Tn="0"/></chemistry>
"""
TRANSPORT = '<transport><model val="fixed_thickness"/></transport>\n'
FLOWS = ("TMIn", "TMGa", "TEGa", "TMAl", "N2", "NH3", "H2")


def ends(value):
    """(val, end) of a constant, or of a ramp that is already such a pair."""
    return value if isinstance(value, tuple) else (value, value)


def stage(name, tau, T, P, delta, **flows):
    """A stage: tau in s, T in K, P in Pa, delta in m, flows in sccm. A pair in T, P or a flow is a linear ramp."""
    return {"name": name, "tau": tau, "T": ends(T), "P": ends(P), "delta": delta,
            "flows": [(flow, ends(flows.get(flow, 0))) for flow in FLOWS]}


def stage_xml(tag, s):
    text = (f'<{tag}><name val="{s["name"]}"/><tau val="{s["tau"]:.6g}"/>'
            f'<T val="{s["T"][0]:.6g}" end="{s["T"][1]:.6g}"/><P val="{s["P"][0]:.6g}" end="{s["P"][1]:.6g}"/>'
            f'<dislocations><disl_model val="inherited"/></dislocations><delta val="{s["delta"]:.6g}"/>'
            '<gas_species><Q>\n')
    text += "".join(f'<{flow} val="{q[0]:.6g}" end="{q[1]:.6g}"/>' for flow, q in s["flows"])
    return text + f"</Q></gas_species></{tag}>\n"


def recipe_xml(material, stages, angle, rho, scheme):
    """A recipe on a GaN template. angle: inclination of the dislocations in degrees, None without stress. rho: cm^-2.
    scheme: of the integration; None: no element integration."""
    text = f'<?xml version="1.0"?>\n<NonstSurfChem><material val="{material}"/>\n{CHEMISTRY}'
    if angle is None:
        text += '<stress><model val="none"/></stress>\n'
    else:
        text += ('<stress><model val="V_dislocation"/><cut_angle val="0.2"/>'
                 f'<V_angle_05 val="{angle:.4g}"/><X_ref val="0.1"/></stress>\n')
    if scheme:
        text += f'<integration><scheme val="{scheme}"/></integration>\n'
    text += (TRANSPORT + '<pre_stages><t0 val="0"/><n_pre_stages val="1"/><pre_stage_1><name val="template"/>'
             '<tau val="3600"/><GR_average val="2"/><thickness val="2000"/><X_In_average val="0"/>'
             '<X_Ga_average val="1"/><X_Al_average val="0"/>'
             f'<dislocations><disl_model val="given"/><rho_D val="{rho:.4g}"/></dislocations>'
             '<stress_state val="3.189"/></pre_stage_1></pre_stages>\n')
    text += f'<process_stages><n_stages val="{len(stages)}"/>\n'
    text += "".join(stage_xml(f"stage_{number}", s) for number, s in enumerate(stages, 1))
    return text + '</process_stages>\n<post_stages><n_post_stages val="0"/></post_stages></NonstSurfChem>\n'


# A family takes material and stages from the random number generator r.

def mqw(r):
    """1 to 5 InGaN wells in GaN barriers, which are up to 120 K hotter, with ramps and interruptions."""
    T_well = r.uniform(970, 1060)
    T_barrier = T_well + r.choice([0, r.uniform(20, 120)])
    at = {"P": r.choice([20000, 40000, 60000]), "delta": r.uniform(0.005, 0.01)}
    TMIn, TEGa = r.uniform(0.05, 0.5), r.uniform(0.2, 0.9)
    at.update(NH3=r.uniform(4000, 12000), N2=r.uniform(4000, 12000))
    H2 = r.choice([0, 0, r.uniform(100, 2000)])
    ramp, pause = r.uniform(5, 60), r.choice([0, r.uniform(5, 60)])
    on_ramp = TEGa if r.random() < 0.5 else 0
    tau_well, tau_barrier = r.uniform(20, 120), r.uniform(60, 300)
    stages = []
    for _ in range(r.randint(1, 5)):
        stages.append(stage("barrier", tau_barrier, T_barrier, TEGa=TEGa, H2=H2, **at))
        if T_barrier != T_well:
            stages.append(stage("cool", ramp, (T_barrier, T_well), TEGa=on_ramp, **at))
        stages.append(stage("well", tau_well, T_well, TEGa=TEGa, TMIn=TMIn, **at))
        if pause:
            stages.append(stage("pause", pause, T_well, **at))
        if T_barrier != T_well:
            stages.append(stage("heat", ramp, (T_well, T_barrier), TEGa=on_ramp, **at))
    stages.append(stage("last barrier", tau_barrier, T_barrier, TEGa=TEGa, H2=H2, **at))
    return "InGaN", stages


def thick(r):
    """A thick InGaN layer, with or without a GaN spacer under it and a GaN cap."""
    at = {"P": r.choice([20000, 40000, 60000]), "delta": r.uniform(0.005, 0.01), "T": r.uniform(960, 1080)}
    TEGa, TMIn = r.uniform(0.2, 0.9), r.uniform(0.03, 0.4)
    at.update(NH3=r.uniform(4000, 12000), N2=r.uniform(4000, 12000))
    stages = []
    if r.random() < 0.5:
        stages.append(stage("spacer", r.uniform(20, 400), TEGa=TEGa, **at))
    stages.append(stage("InGaN", r.uniform(30, 600), TEGa=TEGa, TMIn=TMIn, **at))
    if r.random() < 0.5:
        stages.append(stage("cap", r.uniform(10, 200), TEGa=TEGa, **at))
    return "InGaN", stages


def hemt(r):
    """GaN buffer, interruption, AlN spacer, AlGaN barrier, GaN cap."""
    at = {"P": r.choice([5000, 10000, 20000]), "delta": r.uniform(0.004, 0.007)}
    at.update(NH3=r.uniform(3000, 8000), H2=r.uniform(5000, 12000), N2=r.uniform(0, 3000))
    T, TMGa = r.uniform(1300, 1400), r.uniform(0.3, 2)
    stages = [stage("GaN", r.uniform(200, 3000), T, TMGa=TMGa, **at)]
    if r.random() < 0.5:
        stages.append(stage("pause", r.uniform(5, 60), (T, T + r.uniform(-40, 40)), **at))
    if r.random() < 0.5:
        stages.append(stage("AlN spacer", r.uniform(3, 15), T, TMAl=r.uniform(0.1, 0.4), **at))
    stages.append(stage("AlGaN", r.uniform(20, 200), T, TMGa=TMGa * r.uniform(0.2, 1), TMAl=r.uniform(0.05, 0.5), **at))
    stages.append(stage("cap", r.uniform(3, 20), T, TMGa=TMGa * 0.5, **at))
    return "AlGaN", stages


def led(r):
    """n-GaN in hydrogen, change to nitrogen while cooling, wells, heating, AlGaN blocking layer, p-GaN."""
    at = {"P": r.choice([20000, 40000]), "delta": r.uniform(0.005, 0.008)}
    T_GaN, T_well = r.uniform(1290, 1350), r.uniform(1000, 1050)
    T_barrier, T_p = T_well + r.uniform(20, 100), r.uniform(1200, 1300)
    hot, cold = {"NH3": 6000, "H2": 9000, **at}, {"NH3": 8000, "N2": 8000, **at}
    TMGa, TEGa, TMIn = r.uniform(0.5, 2), r.uniform(0.2, 0.7), r.uniform(0.1, 0.4)
    ramp = r.uniform(20, 90)
    stages = [stage("n-GaN", r.uniform(500, 3600), T_GaN, TMGa=TMGa, **hot),
              stage("cool down", r.uniform(60, 300), (T_GaN, T_barrier), NH3=8000, H2=(9000, 0), N2=(0, 8000), **at)]
    for _ in range(r.randint(2, 5)):
        stages.append(stage("barrier", r.uniform(100, 300), T_barrier, TEGa=TEGa, **cold))
        stages.append(stage("cool", ramp, (T_barrier, T_well), TEGa=TEGa if r.random() < 0.5 else 0, **cold))
        stages.append(stage("well", r.uniform(40, 100), T_well, TEGa=TEGa, TMIn=TMIn, **cold))
        stages.append(stage("heat", ramp, (T_well, T_barrier), TEGa=TEGa if r.random() < 0.5 else 0, **cold))
    stages.append(stage("barrier", 150, T_barrier, TEGa=TEGa, **cold))
    stages.append(stage("heat up", r.uniform(40, 200), (T_barrier, T_p), NH3=8000, N2=(8000, 0), H2=(0, 9000), **at))
    stages.append(stage("EBL", r.uniform(20, 80), T_p, TMGa=TMGa * 0.3, TMAl=r.uniform(0.02, 0.15), **hot))
    stages.append(stage("p-GaN", r.uniform(100, 400), T_p, TMGa=TMGa * 0.6, **hot))
    return "AlInGaN", stages


FAMILIES = {"mqw": mqw, "thick": thick, "hemt": hemt, "led": led}


def recipe(family, stress, number, seed="dev", scheme=None):
    """The text of one recipe."""
    r = random.Random(f"{seed}/{family}/{int(stress)}/{number}")
    material, stages = FAMILIES[family](r)
    angle, rho = r.uniform(5, 20), 10 ** r.uniform(7.5, 9.5)
    return recipe_xml(material, stages, angle if stress else None, rho, scheme)


def write(out_dir, count, families=tuple(FAMILIES), seed="dev", scheme=None):
    """Writes count recipes of each family, without and with stress. Returns their names, FAMILY_STRESS_NUMBER."""
    os.makedirs(out_dir, exist_ok=True)
    names = []
    for family in families:
        for stress in (False, True):
            for number in range(count):
                names.append(f"{family}_{int(stress)}_{number:04d}")
                with open(os.path.join(out_dir, names[-1] + ".xml"), "w", encoding="utf-8") as file:
                    file.write(recipe(family, stress, number, seed, scheme))
    return names


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("out_dir")
    parser.add_argument("--count", type=int, default=40, help="recipes of each family and stress model")
    parser.add_argument("--seed", default="dev")
    parser.add_argument("--family", nargs="*", choices=FAMILIES, default=list(FAMILIES))
    parser.add_argument("--scheme", choices=("continuous", "staged"))
    a = parser.parse_args()
    print(f"{len(write(a.out_dir, a.count, a.family, a.seed, a.scheme))} recipes in {a.out_dir}")


if __name__ == "__main__":
    main()
