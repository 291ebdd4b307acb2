"""Transistor (HEMT) with a spacer: GaN channel, 1 nm of AlN and an AlGaN barrier, hydrogen carrier.

Targets: channel 300 nm; AlN spacer 1 nm, more than 90 % aluminium; barrier 22 nm with 25 % aluminium; GaN cap 2 nm.

The electrons collect at the top of the channel. The spacer keeps them out of the alloy, which would scatter them.
All layers grow at one temperature and pressure, and only the metals are switched. There is no pause before the
spacer, because the hot channel would lose GaN to the hydrogen.
"""
import vorlen


def build():
    recipe = vorlen.Recipe.new("AlGaN", delta="6 mm", pressure="100 mbar", description=__doc__)
    recipe.template("AlN", "100 nm", dislocations="1e10 cm^-2", name="AlN nucleation layer")
    recipe.template("GaN", "2 um", dislocations="7e8 cm^-2", relaxation=0.97, name="GaN buffer")

    recipe.grow("GaN channel", "763 s", T="1070 degC", TMGa="45 umol/min", NH3="4 slm", H2="10 slm")
    recipe.grow("AlN spacer", "12 s", TMGa=0, TMAl="9 umol/min")
    recipe.grow("AlGaN barrier", "42 s", TMGa="45 umol/min", TMAl="13.3 umol/min")
    recipe.grow("GaN cap", "5 s", TMAl=0)
    return recipe


if __name__ == "__main__":
    build().save("hemt.xml")
