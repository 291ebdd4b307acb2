"""vorlen check and slips of units and stages: each one is found, with the number that was meant, and what engineers write on
purpose is not taken for one. And what vorlen run shows of it.
"""
import csv
import io
import json
import os
import re
import sys
import time
import unittest

from support import EXAMPLES, SOURCE, InAFolder, Result, changed_example, example

sys.path.insert(0, os.path.join(SOURCE, "tests", "plausible"))
import plausible  # noqa: E402

NEW_KINDS = {"unit", "unusual-value", "growth", "abrupt-change", "no-ammonia", "swapped-stages",
             "missing-metal"}
HOT = {"NH3": 6000, "H2": 9000}
COLD = {"NH3": 8000, "N2": 8000}
AT = {"P": 40000, "delta": 0.008}
BARRIER = plausible.stage("barrier", 150, 1080, TEGa=0.5, **COLD, **AT)
WELL = plausible.stage("well", 70, 1010, TEGa=0.5, TMIn=0.2, **COLD, **AT)
COOL = plausible.stage("cool", 20, (1080, 1010), **COLD, **AT)
HEAT = plausible.stage("heat", 20, (1010, 1080), **COLD, **AT)
WELLS = [BARRIER, COOL, WELL, HEAT, BARRIER]


def scaled(text, name, factor, offset=0.0):
    """The recipe with all values of the elements of that name in another unit."""
    def element(match):
        return re.sub(r'(val|end)="([^"]*)"', lambda one: f'{one[1]}="{float(one[2]) * factor + offset:.9g}"', match[0])
    return re.sub(rf"<{name} [^>]*>", element, text)


def with_stage(stages, number, **changes):
    """The stages with one of them changed; flows are replaced one by one."""
    changed = dict(stages[number])
    flows = dict(changed["flows"])
    for name, value in changes.items():
        if name in flows:
            flows[name] = plausible.ends(value)
        else:
            changed[name] = plausible.ends(value) if name in ("T", "P") else value
    changed["flows"] = list(flows.items())
    return [*stages[:number], changed, *stages[number + 1:]]


class Plausibility(InAFolder):
    def problems(self, text, *, errors=False):
        """The problems of a recipe, of the new kinds alone unless errors are expected."""
        self.write("recipe.xml", text)
        run = self.run_tool("check", "--format", "json", "recipe.xml")
        self.assertEqual(run.stderr, "")
        problems = json.loads(run.stdout)["files"][0]["problems"]
        if errors:
            return problems
        self.assertEqual([one for one in problems if one["severity"] == "error"], [])
        return [one for one in problems if one["kind"] in NEW_KINDS]

    def one_problem(self, kind, text):
        problems = self.problems(text)
        self.assertEqual([one["kind"] for one in problems], [kind], problems)
        return problems[0]

    def of_stages(self, stages, material="AlInGaN"):
        return plausible.recipe_xml(material, stages, None, 5e8, "staged")

    def found(self, stages):
        return [(one["kind"], one["stage"]) for one in self.problems(self.of_stages(stages))]


class Units(Plausibility):
    """A whole recipe with one quantity in another unit: one warning, which has the number that was meant."""

    def expect(self, base, name, factor, words, offset=0.0, stage=None):
        with self.subTest(base=base, name=name, factor=factor):
            problem = self.one_problem("unit", scaled(changed_example(base), name, factor, offset))
            self.assertIn(words, problem["text"])
            if stage:
                self.assertEqual(problem["stage"], stage)
            return problem

    def test_temperatures_in_degrees_celsius(self):
        self.expect("ingan_led_stack", "T", 1, "756.85 °C is 1030 K", -273.15, "stage_1")
        self.expect("algan_gan_hemt", "T", 1, "1076.85 °C is 1350 K", -273.15, "stage_2")
        self.expect("alinn_gan_hemt", "T", 1, "796.85 °C is 1070 K", -273.15)
        self.expect("ingan_gan_mqw", "T", 1, "736.85 °C is 1010 K", -273.15)

    def test_temperatures_of_a_whole_recipe_in_degrees_celsius(self):
        """n-GaN, wells, a blocking layer and p-GaN; only some of them are unusual by themselves."""
        stage = plausible.stage
        led = [stage("n-GaN", 1200, 1060, TMGa=1.5, **HOT, **AT),
               stage("cool", 120, (1060, 840), NH3=8000, H2=(9000, 0), N2=(0, 8000), **AT),
               *[with_stage([one], 0, T=T)[0] for one, T in
                 ((BARRIER, 840), (COOL, (840, 757)), (WELL, 757), (HEAT, (757, 840)), (BARRIER, 840))],
               stage("EBL", 40, 950, TMGa=0.3, TMAl=0.1, **COLD, **AT),
               stage("p-GaN", 200, 980, TMGa=0.6, **COLD, **AT)]
        for scheme in ("staged", None):
            problem = self.one_problem("unit", plausible.recipe_xml("AlInGaN", led, None, 5e8, scheme))
            self.assertTrue(problem["text"].startswith("the temperatures of all stages look like °C: T is "), problem)
            self.assertEqual({problem["stage"], *problem["also_in"]}, {f"stage_{number}" for number in range(1, 10)})
            self.assertEqual(problem["hint"], "the unit is K: add 273.15 to T of each of these stages")
            self.assertEqual(self.kinds_of_all("recipe.xml"), ["unit"])  # and no jumps in the continuous scheme
        # The hydrogen stages in K, the wells and barriers in °C.
        mixed = [*with_stage(with_stage(led, 0, T=1333), 1, T=(1333, 1113))[:7]]
        problem = self.one_problem("unit", self.of_stages(mixed))
        self.assertTrue(problem["text"].startswith("the temperatures of 5 stages look like °C: T is 757 K in stage_5, "),
                        problem)
        self.assertEqual({problem["stage"], *problem["also_in"]}, {f"stage_{number}" for number in range(3, 8)})

    def kinds_of_all(self, name):
        run = self.run_tool("check", "--format", "json", name)
        return [one["kind"] for one in json.loads(run.stdout)["files"][0]["problems"]]

    def test_temperatures_that_were_converted_twice(self):
        self.expect("algan_gan_hemt", "T", 1, "1623.15 K is 1350 K + 273.15", 273.15)
        self.expect("ingan_led_stack", "T", 1, "1303.15 K is 1030 K + 273.15", 273.15)

    def test_one_well_in_degrees_celsius(self):
        text = changed_example("ingan_gan_mqw", ('<T val="1010" end="1010"/>', '<T val="757" end="757"/>'))
        problem = self.one_problem("unit", text)
        self.assertEqual(problem["text"],
                         "T is 757 K in stage_1_3, below the usual 870 to 1250 K; 757 °C is 1030.15 K")
        self.assertEqual((problem["stage"], problem["stage_name"], problem["also_in"]), ("stage_1_3", "InGaN well", []))
        self.assertEqual(problem["path"], "NonstSurfChem:process_stages:stage_1:stage_1_3:T")
        self.assertEqual(problem["line"], text[:text.index('<T val="757"')].count("\n") + 1)

    def test_pressures(self):
        self.expect("ingan_gan_mqw", "P", 0.01, "400 mbar is 40000 Pa")
        self.expect("ingan_gan_mqw", "P", 1 / 133.322, "300.026 Torr is 40000 Pa")
        self.expect("ingan_gan_mqw", "P", 1e-3, "40 kPa is 40000 Pa")
        self.expect("ingan_gan_mqw", "P", 100, "4000000 Pa is 40000 Pa times 100")
        self.expect("gan_thick_ccs", "P_ref", 0.01, "P_ref is 200 Pa")

    def test_rotations(self):
        with open(os.path.join(SOURCE, "tests", "data", "recipes", "algan_gan_mirror_tdr.xml"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn("turns per second is ", self.problems(scaled(text, "omega_TDR", 1 / 60))[0]["text"])
        self.assertIn("omega_TDR_ref is ", self.problems(scaled(text, "omega_TDR_ref", 1 / 60))[0]["text"])

    def test_layers(self):
        self.expect("ingan_gan_mqw", "delta", 1e3, "8 mm is 0.008 m")
        self.expect("ingan_gan_mqw", "delta", 1e2, "0.8 cm is 0.008 m")
        self.expect("ingan_gan_mqw", "delta", 1e6, "8000 µm is 0.008 m")
        self.expect("ingan_gan_mqw", "delta", 1e-3, "8e-6 m is 0.008 m / 1000")

    def test_flows_in_standard_litres(self):
        text = changed_example("ingan_gan_mqw")
        for gas in ("N2", "NH3", "H2"):
            text = scaled(text, gas, 1e-3)
        problem = self.one_problem("unit", text)
        self.assertIn("the total flow is 16.5 sccm in stage_1_1, below the usual 300 to 1000000 sccm; "
                      "N2 8 slm is 8000 sccm, NH3 8 slm is 8000 sccm", problem["text"])
        self.expect("ingan_gan_mqw", "NH3", 1e-3, "8 slm is 8000 sccm")
        self.expect("algan_gan_hemt", "NH3", 1e-3, "4 slm is 4000 sccm")
        self.expect("ingan_gan_mqw", "N2", 1e-3, "8 slm is 8000 sccm")
        self.expect("algan_gan_hemt", "H2", 1e-3, "10 slm is 10000 sccm")
        problem = self.one_problem("unit", text.replace('<H2 val="0" end="0"', '<H2 val="6000" end="6000"').replace(
            '<NH3 val="8" end="8"', '<NH3 val="8000" end="8000"'))  # nitrogen next to hydrogen
        self.assertIn("N2 is 8 sccm in stage_1_1, of 14008.5 sccm in total; 8 slm is 8000 sccm (also in ", problem["text"])
        self.assertEqual(self.problems(scaled(changed_example("ingan_gan_mqw"), "N2", 4.45599 / 8000)), [])
        self.expect("ingan_gan_mqw", "NH3", 1e3, "8000000 sccm is 8000 sccm times 1000")

    def test_flows_of_metals_in_micromoles_or_litres(self):
        umol = 1 / 0.022414
        self.expect("ingan_gan_mqw", "TEGa", umol, "22.3075 µmol/min is 0.5 sccm")
        text = scaled(scaled(changed_example("algan_gan_hemt"), "TMGa", umol), "TMAl", umol)
        problem = self.one_problem("growth", text)
        self.assertIn("the expected growth rate is 18.", problem["text"])
        self.assertIn("TMGa 44.615 µmol/min is 1 sccm", problem["text"])
        self.expect("algan_gan_hemt", "TMAl", 1e-3, "0.0003 slm is 0.3 sccm")
        self.expect("ingan_gan_mqw", "TEGa", 1e-3, "a V/III ratio of 1.6e7, above the usual 25 to 2000000; "
                    "TEGa 0.0005 slm is 0.5 sccm")

    def test_one_metal_in_micromoles_beside_another_in_sccm(self):
        well = with_stage([WELL], 0, TEGa=0.56, TMIn=8)
        problem = self.one_problem("unit", self.of_stages([BARRIER, COOL, *well, HEAT]))
        self.assertEqual(problem["text"], "TMIn is 8 sccm in stage_3, 14.3 times the 0.56 sccm of gallium precursors; "
                                          "8 µmol/min is 0.1793 sccm")
        self.assertEqual(self.found(with_stage([WELL], 0, TEGa=0.56, TMIn=2.7)), [])  # as much as red light needs
        for name, TMAl, kinds in (("EBL", 10, ["unit"]), ("p-AlGaN", 10, ["unit"]), ("Al0.15Ga0.85N", 10, ["unit"]),
                                  ("Al0.9Ga0.1N", 10, []), ("AlN", 10, []), ("layer", 10, []), ("AlGaN", 0.2, []),
                                  ("AlGaN", 6.5, []), ("AlGaN cap", 10, [])):
            stage = plausible.stage(name, 10, 1340, TMGa=1.34, TMAl=TMAl, **HOT, **AT)
            problems = [one for one in self.problems(self.of_stages([stage])) if one["kind"] == "unit"]
            self.assertEqual([one["kind"] for one in problems], kinds, name)
            if kinds:
                self.assertIn("7.46 times the 1.34 sccm of gallium precursors; 10 µmol/min is 0.2241 sccm",
                              problems[0]["text"])

    def test_durations(self):
        text = changed_example("ingan_gan_mqw")
        problems = self.problems(scaled(text, "tau", 1 / 60))
        self.assertEqual([one["kind"] for one in problems], ["unit", "growth"])
        self.assertIn("50 min is 3000 s (also in post_stage_1)", problems[0]["text"])
        self.assertIn("tau of stage_1_1 is 2.5 s, and 2.5 min is 150 s", problems[1]["text"])
        problems = self.problems(scaled(text, "tau", 1e3))
        self.assertIn("150000 ms is 150 s", problems[1]["text"])

    def test_layers_below(self):
        self.expect("ingan_gan_mqw", "thickness", 1e-3, "2 µm is 2000 nm", stage="pre_stage_1")
        problem = self.expect("ingan_gan_mqw", "GR_average", 1 / 3.6, "0.666667 nm/s is 2.4 µm/h")
        self.assertEqual(problem["also_in"], ["post_stage_1"])
        self.expect("ingan_gan_mqw", "rho_D", 1e4, "3e12 m⁻² is 3e8 cm⁻²")
        # Without a rate to compare with.
        text = scaled(scaled(changed_example("ingan_gan_mqw"), "thickness", 1e-3), "GR_average", 0)
        self.assertIn("thickness is 2 nm in pre_stage_1", self.one_problem("unit", text)["text"])

    def test_lattice_constants(self):
        text = changed_example("algan_gan_hemt", ('<stress_state val="0.8"/>', '<stress_state val="0.3189"/>'))
        self.assertIn("0.3189 nm is 3.189 Å", self.one_problem("unit", text)["text"])
        text = changed_example("algan_gan_hemt", ('<stress_state val="0.8"/>', '<stress_state val="80"/>'))
        self.assertIn("80 % of relaxation is 0.8", self.one_problem("unit", text)["text"])
        text = changed_example("algan_gan_hemt", ('<stress_state val="3.112"/>', '<stress_state val="311.2"/>'))
        self.assertIn("311.2 pm is 3.112 Å", self.one_problem("unit", text)["text"])
        for relaxation in ("0.32", "0.319", "0.8", "1"):
            text = changed_example("algan_gan_hemt", ('<stress_state val="0.8"/>', f'<stress_state val="{relaxation}"/>'))
            self.assertEqual(self.problems(text), [])
        text = changed_example("algan_gan_hemt", ('<stress_state val="3.112"/>', '<stress_state val="0.3112"/>'))
        (problem,) = self.problems(text, errors=True)
        self.assertEqual(problem["severity"], "error")
        self.assertIn("0.3112 nm is 3.112 Å", problem["hint"])

    def test_angles(self):
        self.expect("ingan_v_defects", "V_angle_05", 0.0174533, "rad is ")

    def test_reference_conditions(self):
        text = scaled(changed_example("gan_thick_ccs"), "T_ref", 1, -273.15)
        self.assertIn("1026.85 °C is 1300 K", self.one_problem("unit", text)["text"])
        text = scaled(changed_example("gan_thick_ccs"), "GR_ref", 0.04)
        self.assertIn("the transport layer that follows from the reference conditions is",
                      self.one_problem("unusual-value", text)["text"])
        text = scaled(changed_example("gan_thick_ccs"), "TMGa", 1 / 0.022414)
        self.assertIn("TMGa 44.615 µmol/min is 1 sccm", self.one_problem("unusual-value", text)["text"])

    def test_values_that_are_odd_in_every_unit(self):
        text = changed_example("algan_gan_hemt", ('<T val="1350" end="1350"/>', '<T val="5000" end="5000"/>'))
        self.assertIn("T is 5000 K in stage_1, above the usual", self.one_problem("unusual-value", text)["text"])

    def test_a_cause_in_many_stages_is_one_warning(self):
        text = self.of_stages(with_stage(WELLS, 0, P=400)[:1] * 20)
        problem = self.one_problem("unit", text)
        self.assertEqual(problem["also_in"], [f"stage_{number}" for number in range(2, 21)])
        self.assertTrue(problem["text"].endswith("(also in stage_2, stage_3, stage_4 and 16 more stages)"), problem["text"])

    def test_units_without_utf_8(self):
        self.write("recipe.xml", changed_example("ingan_gan_mqw", ('"1010" end="1010"', '"757" end="757"')))
        run = self.run_tool("check", "recipe.xml", env={**os.environ, "LC_ALL": "C"})
        self.assertIn("757 deg C is 1030.15 K\n", run.stdout)

    def test_the_recipe_stays_accepted(self):
        self.write("recipe.xml", scaled(changed_example("ingan_gan_mqw"), "T", 1, -273.15))
        self.assertEqual(self.run_tool("check", "recipe.xml").returncode, 0)
        self.assertEqual(self.run_tool("check", "--strict", "recipe.xml").returncode, 1)
        self.assertEqual(self.run_tool("check", "--strict", "--allow", "unit", "recipe.xml").returncode, 0)


class Sequences(Plausibility):
    def test_jumps_of_temperature_while_metals_flow(self):
        self.assertEqual(self.found(with_stage(WELLS, 2, T=1031)), [])  # no metals before
        jumping = [BARRIER, WELL, BARRIER, WELL, BARRIER]
        (problem,) = self.problems(self.of_stages(jumping))
        self.assertEqual((problem["kind"], problem["stage"], problem["also_in"]),
                         ("abrupt-change", "stage_2", ["stage_3", "stage_4", "stage_5"]))
        self.assertIn("from 1080 K at the end of stage_1 to 1010 K in stage_2 while metals flow", problem["text"])
        for warm, kinds in ((1030, []), (1031, [("abrupt-change", "stage_2")])):
            self.assertEqual(self.found(with_stage([WELL, BARRIER], 1, T=warm)), kinds)

    def test_a_jump_of_270_K(self):
        text = changed_example("ingan_gan_mqw", ('<T val="1080" end="1010"/>', '<T val="1350" end="1010"/>'))
        problem = self.one_problem("abrupt-change", text)
        self.assertIn("from 1080 K at the end of stage_1_1 to 1350 K in stage_1_2", problem["text"])

    def test_a_jump_from_the_last_to_the_first_sub_stage(self):
        text = changed_example("ingan_gan_mqw", ('<T val="1010" end="1080"/>', '<T val="1010" end="1010"/>'))
        problem = self.one_problem("abrupt-change", text)
        self.assertEqual((problem["stage"], problem["also_in"]), ("stage_1_1", ["stage_2"]))
        # One period has no such boundary.
        (problem,) = self.problems(text.replace('<n_periods val="3"/>', '<n_periods val="1"/>'))
        self.assertEqual((problem["stage"], problem["also_in"]), ("stage_2", []))

    def test_changes_of_the_carrier_gas(self):
        hot = plausible.stage("n-GaN", 600, 1090, TMGa=1, **HOT, **AT)
        (problem,) = self.problems(self.of_stages([hot, BARRIER]))
        self.assertEqual((problem["kind"], problem["stage"]), ("abrupt-change", "stage_2"))
        self.assertIn("the carrier gas changes from hydrogen at the end of stage_1 to nitrogen in stage_2", problem["text"])
        pause = plausible.stage("change", 60, (1090, 1080), NH3=8000, H2=(9000, 0), N2=(0, 8000), **AT)
        self.assertEqual(self.found([hot, pause, BARRIER]), [])
        self.assertEqual(self.found([BARRIER, *with_stage([BARRIER], 0, H2=2000)]), [])

    def test_growth_without_ammonia(self):
        self.assertEqual(self.found(with_stage(WELLS, 4, NH3=0)), [("no-ammonia", "stage_5")])
        self.assertEqual(self.found(with_stage(WELLS, 4, NH3=(8000, 0))), [("no-ammonia", "stage_5")])
        self.assertEqual(self.found(with_stage(WELLS, 4, NH3=(8000, 0), TEGa=(0.5, 0))), [])

    def test_a_preflow_of_aluminium_is_not_growth(self):
        at = {"P": 10000, "delta": 0.006}
        AlN = plausible.stage("AlN", 600, 1500, TMAl=0.5, **HOT, **at)
        for seconds, kinds in ((10, []), (31, [("no-ammonia", "stage_1")])):
            preflow = plausible.stage("preflow", seconds, 1500, TMAl=0.5, H2=9000, **at)
            self.assertEqual(self.found([preflow, AlN]), kinds)
        for name, kinds in (("AlN spacer", [("no-ammonia", "stage_2")]), ("TMAl pulse, AlN", []), ("before AlN", [])):
            spacer = plausible.stage(name, 4, 1500, TMAl=0.5, H2=9000, **at)
            self.assertEqual(self.found([AlN, spacer, AlN]), kinds, name)

    def test_hot_stages_without_ammonia(self):
        def stages(temperature, **gases):
            return [*WELLS, plausible.stage("after", 60, temperature, **gases, **AT)]
        self.assertEqual(self.found(stages(1080, N2=8000)), [])  # annealing
        self.assertEqual(self.found(stages(1080, H2=8000)), [("no-ammonia", "stage_6")])
        self.assertEqual(self.found(stages((1250, 600), N2=8000)), [("no-ammonia", "stage_6")])
        self.assertEqual(self.found(stages(800, H2=8000)), [])
        self.assertEqual(self.found([*stages(1080, N2=8000), BARRIER]), [("no-ammonia", "stage_6")])
        self.assertEqual(self.found([*stages(1080, N2=8000, NH3=1000), BARRIER]), [])

    def test_a_substrate_can_be_baked_in_hydrogen(self):
        stages = [plausible.stage("bake", 300, 1350, H2=9000, **AT),
                  plausible.stage("GaN", 600, 1330, TMGa=1, **HOT, **AT)]
        text = self.of_stages(stages)
        self.assertEqual([one["kind"] for one in self.problems(text)], ["no-ammonia"])  # on a template of GaN
        bare = re.sub("<pre_stage_1>.*</pre_stage_1>", "", text, flags=re.DOTALL)
        bare = bare.replace('<n_pre_stages val="1"/>', '<n_pre_stages val="0"/>')
        bare = bare.replace('<disl_model val="inherited"/>', '<disl_model val="given"/><rho_D val="5e8" end="5e8"/>')
        self.assertEqual(self.problems(bare), [])
        AlN = text.replace('<X_Ga_average val="1"/><X_Al_average val="0"/>', '<X_Ga_average val="0"/><X_Al_average val="1"/>')
        self.assertEqual(self.problems(AlN.replace('val="3.189"', 'val="3.112"')), [])

    def test_stages_with_each_others_flows(self):
        swapped = with_stage(with_stage(WELLS, 2, TMIn=0), 4, TMIn=0.2)
        (problem,) = self.problems(self.of_stages(swapped))
        self.assertEqual(problem["kind"], "swapped-stages")
        self.assertIn('stage_3, "well", grows without TMIn, and stage_5, "barrier", with it', problem["text"])

    def test_a_well_without_indium(self):
        text = scaled(changed_example("ingan_gan_mqw"), "TMIn", 0)
        problem = self.one_problem("missing-metal", text)
        self.assertEqual(problem["text"], 'stage_1_3 is named "InGaN well", but no TMIn flows')
        self.assertEqual(problem["path"], "NonstSurfChem:process_stages:stage_1:stage_1_3:gas_species:Q:TMIn")
        self.assertEqual(self.found(with_stage(WELLS, 2, TMIn=0)), [("missing-metal", "stage_3")])
        twice = [*with_stage(WELLS, 2, TMIn=0), *with_stage(WELLS, 2, TMIn=0)]
        self.assertEqual(self.problems(self.of_stages(twice))[0]["also_in"], ["stage_8"])
        for name, kinds in (("QW 2", 1), ("InGaN", 1), ("n-In0.1Ga0.9N", 1), ("QW barrier", 0), ("cap on InGaN", 0),
                            ("ramp, QW", 0), ("QW spacer", 0), ("InGaN pre-well", 0), ("GaN QW", 0), ("cool", 0),
                            ("well interruption", 0), ("GaN", 0), ("without InGaN", 0)):
            stages = [{**one, "name": name} if one["name"] == "well" else one for one in with_stage(WELLS, 2, TMIn=0)]
            self.assertEqual(self.found(stages),
                             [("missing-metal", "stage_3")] * kinds, name)
        # A ramp and a pause.
        self.assertEqual(self.found(with_stage(WELLS, 2, TMIn=0, T=(1010, 1015))), [])
        self.assertEqual(self.found(with_stage(WELLS, 2, TMIn=0, TEGa=0)), [])
        # Not in a material without indium, nor for a well of GaN between layers with aluminium.
        self.assertEqual(self.problems(self.of_stages(with_stage(WELLS, 2, TMIn=0), "AlGaN")), [])
        aluminium = [with_stage([BARRIER], 0, TMAl=0.05)[0], with_stage([WELL], 0, TMIn=0, T=1080)[0]]
        self.assertEqual(self.found(aluminium), [])

    def test_a_blocking_layer_without_aluminium(self):
        for name, material, kinds in (("EBL", "AlInGaN", 1), ("p-AlGaN", "AlGaN", 1), ("blocking layer", "AlGaN", 1),
                                      ("AlN spacer", "AlGaN", 1), ("EBL", "InGaN", 0), ("AlGaN/GaN", "AlGaN", 0),
                                      ("cap on AlGaN", "AlGaN", 0), ("GaN", "AlGaN", 0)):
            stages = [plausible.stage(name, 40, 1250, TMGa=0.6, **HOT, **AT)]
            found = [one["kind"] for one in self.problems(self.of_stages(stages, material))]
            self.assertEqual(found, ["missing-metal"] * kinds, name)

    def test_formulas_in_names(self):
        def named(first, second):
            """GaN and then AlGaN under these names."""
            at = {"P": 10000, "delta": 0.006, "T": 1330}
            return self.found([plausible.stage(first, 100, TMGa=1, **HOT, **at),
                               plausible.stage(second, 100, TMGa=1, TMAl=0.3, **HOT, **at)])
        self.assertEqual(named("GaN", "AlGaN"), [])
        self.assertEqual(named("AlGaN", "GaN"), [("swapped-stages", "stage_1")])
        self.assertEqual(named("n-Al0.3Ga0.7N", "u-GaN 2"), [("swapped-stages", "stage_1")])
        self.assertEqual(named("AlGaN", "barrier"), [("missing-metal", "stage_1")])
        for first, second in (("layer", "GaN"), ("AlGaN/GaN", "GaN"), ("below AlGaN", "GaN"),
                              ("Aluminium", "GaN"), ("ramp to AlGaN", "GaN"), ("cap on AlGaN", "GaN")):
            self.assertEqual(named(first, second), [], first)

    def test_a_layer_with_indium_that_is_hotter_than_its_neighbours(self):
        def around(barrier, well):
            return [with_stage([BARRIER], 0, T=barrier)[0], with_stage([COOL], 0, T=(barrier, well))[0],
                    with_stage([WELL], 0, T=well)[0], with_stage([HEAT], 0, T=(well, barrier))[0],
                    with_stage([BARRIER], 0, T=barrier)[0]]
        self.assertEqual(self.found(around(1010, 1080)), [("swapped-stages", "stage_3")])
        for barrier, well in ((1080, 1010), (1040, 1040), (1040, 1048)):
            self.assertEqual(self.found(around(barrier, well)), [])
        self.assertEqual(self.found(around(1010, 1080)[1:]), [])  # nothing below to compare with

    def test_exchanged_temperatures_of_a_periodic_stage(self):
        text = changed_example("ingan_gan_mqw")
        inner = re.search("<stage_1>.*</stage_1>", text, re.DOTALL)[0]
        exchanged = inner.replace('"1080"', '"x"').replace('"1010"', '"1080"').replace('"x"', '"1010"')
        text = text.replace(inner, exchanged)
        last = re.search("<stage_2>.*</stage_2>", text, re.DOTALL)[0]
        problem = self.one_problem("swapped-stages", text.replace(last, last.replace('"1080"', '"1010"')))
        self.assertEqual(problem["stage"], "stage_1_3")


class FalseAlarms(Plausibility):
    def expect_silence(self, paths):
        run = self.run_tool("check", "--format", "json", *paths)
        files = json.loads(run.stdout)["files"]
        self.assertEqual(len(files), len(paths))
        found = [(one["file"], problem["text"]) for one in files for problem in one["problems"]
                 if problem["severity"] == "error" or problem["kind"] in NEW_KINDS]
        self.assertEqual(found, [])

    def test_examples_and_stored_recipes(self):
        folder = os.path.join(SOURCE, "tests", "data", "recipes")
        stored = [os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".xml")]
        self.expect_silence([*map(example, EXAMPLES), *stored])

    def test_recipes_of_every_family(self):
        for seed in ("dev", "plausibility", 3):
            names = plausible.write(self.path(str(seed)), 15, seed=seed)
            self.expect_silence([self.path(f"{seed}/{name}.xml") for name in names])

    def test_unusual_reactors_and_layers(self):
        stage = plausible.stage
        recipes = {
            "AlN at 1700 K, V/III ratio 20": [
                stage("AlN", 3600, 1700, P=3000, delta=0.005, TMAl=1, NH3=20, H2=8000)],
            "AlN at 1500 K and 20 mbar": [stage("AlN", 1800, 1500, P=2000, delta=0.004, TMAl=0.6, NH3=1500, H2=15000)],
            "HEMT at 50 mbar": [
                stage("GaN buffer", 3000, 1340, P=5000, delta=0.005, TMGa=4, NH3=6000, H2=12000),
                stage("AlN spacer", 5, 1340, P=5000, delta=0.005, TMAl=0.2, NH3=3000, H2=12000),
                stage("AlGaN barrier", 60, 1340, P=5000, delta=0.005, TMGa=0.6, TMAl=0.25, NH3=3000, H2=12000)],
            "carbon-doped GaN": [stage("C:GaN", 1800, 1240, P=5000, delta=0.006, TMGa=4, NH3=250, H2=14000)],
            "atmospheric pressure": [
                stage("GaN", 1800, 1320, P=101325, delta=0.01, TMGa=2, NH3=5000, H2=5000),
                stage("cooling", 240, (1320, 1050), P=101325, delta=0.01, NH3=6000, H2=(5000, 0), N2=(0, 6000)),
                stage("InGaN", 300, 1050, P=101325, delta=0.01, TEGa=0.3, TMIn=0.6, NH3=6000, N2=6000)],
            "UV LED": [
                stage("n-AlGaN", 3600, 1400, P=6000, delta=0.006, TMGa=0.5, TMAl=0.6, NH3=1500, H2=12000),
                stage("cool", 120, (1400, 1330), P=6000, delta=0.006, NH3=2000, H2=12000),
                stage("AlGaN well", 20, 1330, P=6000, delta=0.006, TEGa=0.4, TMAl=0.1, NH3=2000, H2=12000),
                stage("AlGaN barrier", 60, 1330, P=6000, delta=0.006, TEGa=0.3, TMAl=0.25, NH3=2000, H2=12000)],
            "near UV with AlInGaN barriers": [
                stage("barrier", 120, 1113, TEGa=0.4, TMAl=0.04, TMIn=0.2, **COLD, **AT),
                stage("cool", 20, (1113, 1083), **COLD, **AT),
                stage("well", 60, 1083, TEGa=0.4, TMIn=0.3, **COLD, **AT)],
            "AlGaN caps on cold wells": [
                *WELLS[:3], stage("AlGaN cap", 20, 1010, TEGa=0.4, TMAl=0.05, **COLD, **AT), HEAT, BARRIER],
            "nucleation at 800 K": [
                stage("GaN nucleation", 120, 800, P=60000, delta=0.008, TMGa=1, NH3=4000, H2=8000),
                stage("heating", 300, (800, 1310), P=60000, delta=0.008, NH3=6000, H2=8000),
                stage("GaN", 3600, 1310, P=20000, delta=0.008, TMGa=2, NH3=5000, H2=9000)],
            "AlN nucleation at 820 K": [
                stage("AlN nucleation", 300, 820, P=20000, delta=0.006, TMAl=0.3, NH3=2000, H2=9000),
                stage("heating", 300, (820, 1350), P=20000, delta=0.006, NH3=6000, H2=9000),
                stage("GaN", 3600, 1350, P=20000, delta=0.006, TMGa=2, NH3=6000, H2=9000)],
            "pumped down in a pause": [
                *WELLS, stage("pump", 60, (1080, 700), P=(40000, 500), delta=0.008, **COLD)],
            "InN": [stage("InN", 3600, 820, P=65000, delta=0.008, TMIn=0.3, NH3=9000, N2=6000)],
            "showerhead with a thick layer": [with_delta(one, 0.012) for one in WELLS],
            "planetary reactor": [
                stage("GaN", 3600, 1330, P=20000, delta=0.006, TMGa=30, NH3=30000, H2=60000),
                stage("cooling", 400, (1330, 1070), P=40000, delta=0.006, NH3=40000, H2=(60000, 0), N2=(0, 50000)),
                stage("InGaN", 300, 1070, P=40000, delta=0.006, TEGa=3, TMIn=3, NH3=40000, N2=50000)],
            "small reactor": [
                stage("GaN", 3600, 1300, P=10000, delta=0.01, TMGa=0.1, NH3=500, H2=1000),
                stage("AlGaN", 100, 1300, P=10000, delta=0.01, TMGa=0.1, TMAl=0.03, NH3=500, H2=1000)],
            "pulses of aluminium and ammonia": [
                one for _ in range(5) for one in (
                    stage("TMAl", 5, 1450, P=8000, delta=0.006, TMAl=0.5, H2=10000),
                    stage("NH3", 3, 1450, P=8000, delta=0.006, NH3=1000, H2=10000))],
            "hydrogen in barriers": [*with_stage(WELLS[:1], 0, H2=1500), *WELLS[1:]],
            "flow ramps from nothing": [
                stage("grading", 200, 1330, P=10000, delta=0.006, TMGa=1, TMAl=(0, 0.5), **HOT),
                stage("grading back", 200, 1330, P=10000, delta=0.006, TMGa=1, TMAl=(0.5, 0), **HOT)],
            "indium nearly off": [with_stage([WELL], 0, TMIn=0.005)[0]],
            "p-GaN, annealed in nitrogen": [
                stage("p-GaN", 400, 1230, P=20000, delta=0.006, TMGa=0.6, **HOT),
                stage("cooling", 200, (1230, 1000), P=20000, delta=0.006, NH3=4000, N2=9000),
                stage("annealing", 900, 1000, P=20000, delta=0.006, N2=12000),
                stage("cooling down", 600, (1000, 350), P=100000, delta=0.006, N2=12000)],
        }
        os.mkdir(self.path("unusual"))
        paths = []
        for name, stages in recipes.items():
            paths.append(self.path(f"unusual/{name.replace('/', ' ')}.xml"))
            self.write(paths[-1], plausible.recipe_xml("AlInGaN", stages, None, 5e8, "staged"))
        self.expect_silence(paths)


def with_delta(one, delta):
    return {**one, "delta": delta}


class ManyPeriods(Plausibility):
    def periodic(self, periods):
        """Pulses of aluminium and of ammonia: 0.1 nm of AlN in each period."""
        at = {"T": 1450, "P": 8000, "delta": 0.006}
        pulses = [plausible.stage("TMAl", 1, TMAl=0.12, H2=10000, **at),
                  plausible.stage("NH3", 2, NH3=2000, H2=10000, **at)]
        text = self.of_stages(pulses)
        return text.replace('<process_stages><n_stages val="2"/>',
                            '<process_stages><n_stages val="1"/><stage_1><type val="periodic"/>'
                            f'<n_periods val="{periods}"/><n_stages val="2"/>').replace(
            "<stage_1><name", "<stage_1_1><name").replace("</stage_1>", "</stage_1_1>").replace(
            "stage_2>", "stage_1_2>").replace("</process_stages>", "</stage_1></process_stages>")

    def test_pulses_add_up_over_all_periods(self):
        self.assertEqual(self.problems(self.periodic(200)), [])
        problem = self.one_problem("growth", self.periodic(2))
        self.assertIn("no stage is expected to grow even a bilayer", problem["text"])

    def test_minutes_are_suggested_only_where_they_help(self):
        problems = self.problems(scaled(changed_example("ingan_gan_mqw"), "tau", 1e-4))
        self.assertIn("no stage is expected to grow even a bilayer, 0.26 nm", [one["text"] for one in problems])


class FaultyRecipes(Plausibility):
    """Values that could not be read cause no warnings, and the rest of the recipe is checked."""

    def test_each_element_missing_or_without_a_number(self):
        text = scaled(changed_example("ingan_gan_mqw"), "P", 0.01)
        for name in ("T", "P", "tau", "delta", "TMIn", "TEGa", "NH3", "N2", "H2", "gas_species", "n_periods", "thickness",
                     "stress_state", "rho_D", "dislocations", "pre_stages", "post_stages", "material", "transport"):
            for new in ("<other/>", f'<{name} val="x" end="y"/>', f'<{name} val="nan" end="nan"/>'):
                with self.subTest(name=name, new=new):
                    pattern = rf"<{name}>.*?</{name}>|<{name} [^>]*/>"
                    changed, number = re.subn(pattern, new, text, count=1, flags=re.DOTALL)
                    self.assertEqual(number, 1)
                    problems = self.problems(changed, errors=True)
                    self.assertTrue(any("400 mbar is 40000 Pa" in one["text"] for one in problems), problems)

    def test_all_values_are_nan(self):
        text = re.sub(r'(val|end)="[0-9.e+-]+"', r'\1="nan"', changed_example("ingan_gan_mqw"))
        text = re.sub(r'<n_(\w+) val="nan"', r'<n_\1 val="2"', text)
        kinds = {one["kind"] for one in self.problems(text, errors=True)}
        self.assertFalse(kinds & NEW_KINDS, kinds)

    def test_no_flows_at_all(self):
        text = changed_example("ingan_gan_mqw")
        for name in ("TMIn", "TEGa", "TMAl", "NH3", "N2", "H2"):
            text = scaled(text, name, 0)
        self.assertEqual(self.problems(text), [])


class Runs(Plausibility):
    def odd_recipe(self):
        """Four warnings; the two about parts that are not simulated are the last in the file."""
        text = scaled(scaled(changed_example("ingan_gan_mqw"), "P", 0.01), "rho_D", 1e4)
        text = text.replace('<tau val="70"/>', '<tau val="70"/><tau val="7"/>')
        return text.replace('<n_stages val="2"/>', '<n_stages val="1"/>')

    def test_the_first_three_warnings_are_shown(self):
        self.write("recipe.xml", self.odd_recipe())
        run = self.run_tool("run", "recipe.xml")
        self.assertEqual(run.returncode, 0)
        lines = run.stderr.splitlines()
        self.assertRegex(lines[0], r'^vorlen: warning: recipe\.xml: line \d+: a second element .*:tau is not read '
                                   r'\(stage_1_3 "InGaN well"\)$')
        self.assertRegex(lines[1], r'^vorlen: warning: recipe\.xml: line \d+: element .*:stage_2 is not read '
                                   r'\(stage_2 "last GaN barrier"\)$')
        self.assertRegex(lines[2], r'^vorlen: warning: recipe\.xml: line \d+: rho_D is 3e12 cm\S+ in pre_stage_1 '
                                   r'"GaN template", ')
        self.assertEqual(lines[3:], ['vorlen: recipe.xml: 4 warnings; "vorlen check recipe.xml" shows all'])
        self.assertEqual(self.run_tool("run", "recipe.xml", "--force").stdout.count("warning"), 0)

    def test_all_warnings_about_parts_that_are_not_simulated_are_shown(self):
        text = scaled(changed_example("ingan_gan_mqw"), "P", 0.01)
        for name in ("tau", "T", "P", "delta"):
            text = re.sub(rf"<{name} val[^>]*>", r"\g<0>\g<0>", text, count=1)
        self.write("recipe.xml", text)
        lines = self.run_tool("run", "recipe.xml").stderr.splitlines()
        self.assertEqual([": a second element " in line for line in lines], [True] * 4 + [False])
        self.assertIn(": 5 warnings; ", lines[-1])

    def test_a_recipe_without_warnings_runs_silently(self):
        self.assertEqual(self.run_tool("run", example("algan_tension")).stderr, "")

    def test_several_recipes_have_one_line_each(self):
        self.write("a.xml", changed_example("algan_tension"))
        self.write("b.xml", self.odd_recipe())
        self.write("c.xml", scaled(changed_example("ingan_gan_mqw"), "P", 0.01))
        run = self.run_tool("run", "a.xml", "b.xml", "c.xml")
        lines = run.stderr.splitlines()
        self.assertRegex(lines[0], r"^vorlen: warning: b\.xml: 4 warnings, first line \d+: a second element .* is not read "
                                   r'\(stage_1_3 "InGaN well"\)$')
        self.assertEqual(lines[1:3], ["vorlen: warning: c.xml: 1 warning",
                                      'vorlen: 2 of 3 recipes with warnings; "vorlen check RECIPE..." shows them'])

    def test_a_large_batch_does_not_flood_the_terminal(self):
        names = [f"r{number:02}.xml" for number in range(24)]
        for name in names:
            self.write(name, scaled(changed_example("algan_tension"), "P", 0.01))
        self.write("r23.xml", self.odd_recipe())
        errors = self.run_tool("run", "-j", "2", *names).stderr
        self.assertEqual(errors.count(": 1 warning\n"), 20)
        self.assertIn("r23.xml: 4 warnings, first line ", errors)  # a part that is not simulated is never silent
        self.assertIn("vorlen: 24 of 24 recipes with warnings", errors)

    def test_warnings_about_the_scheme_are_for_recipes_that_run_under_it(self):
        hot = [plausible.stage("GaN", 60, 1330, TMGa=1, **HOT, **AT), plausible.stage("pause", 10, 1330, **HOT, **AT),
               plausible.stage("GaN", 60, 1330, TMGa=1, **HOT, **AT)]
        self.write("recipe.xml", plausible.recipe_xml("AlGaN", hot, None, 5e8, None))
        self.assertIn("recipe.xml: 1 warning;", self.run_tool("run", "recipe.xml").stderr)
        self.assertEqual(self.run_tool("run", "recipe.xml", "--scheme", "staged").stderr, "")

    def test_a_recipe_that_is_rejected_has_its_error_only(self):
        self.write("recipe.xml", self.odd_recipe().replace('val="InGaN"/>', 'val="GaAs"/>', 1))
        self.assertEqual(self.run_tool("run", "recipe.xml").stderr.splitlines(), [
            'vorlen: Material "GaAs" is not recognized',
            'vorlen: "vorlen check recipe.xml" explains it and shows all problems'])
        run = self.run_tool("run", "--keep-going", "recipe.xml", example("algan_tension"))
        self.assertIn('vorlen: recipe.xml: Material "GaAs" is not recognized\n'
                      'vorlen: "vorlen check recipe.xml" explains it and shows all problems\n', run.stderr)

    def test_other_failures_do_not_refer_to_the_check(self):
        self.assertNotIn("vorlen check", self.run_tool("run", "missing.xml").stderr)
        with open(self.path("recipe.xml"), "w", encoding="utf-8") as file:
            file.write(changed_example("ingan_gan_mqw").replace('val="InGaN"/>', 'val="GaAs"/>', 1))
        self.write("recipe.status.json", "{}")  # the run is not started
        self.assertNotIn("vorlen check", self.run_tool("run", "recipe.xml").stderr)

    def test_the_check_takes_no_time(self):
        text = changed_example("algan_gan_hemt")
        stage = re.search("<stage_2>.*</stage_2>", text, re.DOTALL)[0]
        stages = "".join(stage.replace("stage_2>", f"stage_{number}>") for number in range(4, 1001))
        self.write("recipe.xml", text.replace('<n_stages val="3"/>', '<n_stages val="1000"/>').replace(
            "</process_stages>", stages + "</process_stages>"))
        begin = time.monotonic()
        self.assertEqual(self.run_tool("check", "recipe.xml").stdout, "recipe.xml: no problems\n")
        self.assertLess(time.monotonic() - begin, 5)  # 0.05 s on an idle processor


class ExpectedGrowth(Plausibility):
    """The expected thickness of vorlen timeline, compared with that of a run."""

    def compared(self, name):
        """{layer: expected thickness / simulated thickness} of the active stages of an example."""
        rows = csv.DictReader(io.StringIO(self.run_tool("timeline", "--csv", example(name)).stdout, newline=""))
        expected = [(row["kind"], float(row["expected_thickness_nm"] or "nan")) for row in rows]
        self.run_tool("run", example(name), "-o", "r.txt")
        layers = Result(self.path("r.txt")).layers
        return {layer: thickness / simulated for (kind, thickness), (layer, _, simulated) in
                zip(expected, layers, strict=True) if kind == "active"}

    def test_gallium_nitride(self):
        for layer, ratio in self.compared("gan_thick_ccs").items():
            self.assertTrue(1.0 < ratio < 1.04, (layer, ratio))

    def test_gallium_aluminium_nitride_in_hydrogen(self):
        for layer, ratio in self.compared("algan_gan_hemt").items():
            self.assertTrue(1.0 < ratio < 1.1, (layer, ratio))

    def test_wells(self):
        ratios = self.compared("ingan_gan_mqw")
        self.assertAlmostEqual(ratios["GaN barrier"], 1.0, delta=0.005)
        self.assertTrue(1.1 < ratios["InGaN well"] < 1.4, ratios)  # indium desorbs

    def test_all_models_of_transport(self):
        folder = os.path.join(SOURCE, "tests", "data", "recipes")
        for name in ("algan_gan_mirror_tdr", "ingan_led_hfr", "ingan_wells_gr_x"):
            run = self.run_tool("timeline", "--csv", os.path.join(folder, name + ".xml"))
            rows = [row for row in csv.DictReader(io.StringIO(run.stdout, newline="")) if row["kind"] == "active"]
            rates = [float(row["expected_rate_nm_s"]) for row in rows]
            grows = [any(float(row[f"{metal}_begin_sccm"]) > 0 for metal in ("TMIn", "TMGa", "TEGa", "TMAl")) for row in rows]
            self.assertEqual([0.01 < rate < 2 for rate in rates], grows, name)
            self.assertIn(True, grows)
            for row, rate in zip(rows, rates, strict=True):
                self.assertAlmostEqual(float(row["expected_thickness_nm"]), rate * float(row["duration_s"]), delta=1e-9)

    def test_the_table_shows_it(self):
        lines = self.run_tool("timeline", example("gan_thick_ccs")).stdout.splitlines()
        heading = next(line for line in lines if line.startswith("  stage "))
        self.assertTrue(heading.endswith("  expected nm/s  expected nm"), heading)
        # The reference rate, for 240 s.
        self.assertRegex(next(line for line in lines if "calibration conditions" in line), r" 0\.5 +120$")

    def test_pauses_do_not_grow(self):
        self.write("recipe.xml", self.of_stages(WELLS))
        rows = list(csv.DictReader(io.StringIO(self.run_tool("timeline", "--csv", "recipe.xml").stdout, newline="")))
        self.assertEqual([float(row["expected_thickness_nm"]) for row in rows if row["name"] in ("cool", "heat")], [0, 0])
        self.assertEqual([row["expected_rate_nm_s"] for row in rows if row["kind"] == "pre"], [""])

    def test_a_recipe_that_the_model_rejects_has_none(self):
        self.write("recipe.xml", changed_example("gan_thick_ccs", ('<GR_ref val="0.5"/>', '<GR_ref val="1e-11"/>')))
        run = self.run_tool("timeline", "recipe.xml")
        if run.returncode == 0:
            self.assertRegex(run.stdout, r"calibration conditions .* - +-\n")
        else:
            self.assertNotEqual(run.stderr, "")


if __name__ == "__main__":
    unittest.main()
