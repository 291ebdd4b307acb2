"""Violet laser diode: AlGaN claddings, InGaN waveguides and two InGaN wells, all simulated.

Targets: claddings with 6 % aluminium, 700 nm below and 500 nm above; waveguides of 80 nm with 3 % indium; two wells
of 3 nm with 13 % indium, which emit near 425 nm; barriers of 9 nm; an electron-blocking layer of 15 nm with 18 %
aluminium.

The claddings have a smaller refractive index than the waveguides, which keeps the light at the wells. Temperature
and carrier gas change in pauses. 5 nm of GaN cover the layers below meanwhile: gallium would evaporate from the
cladding and leave a skin of aluminium, and indium would evaporate from the waveguide.
"""
import vorlen


def build():
    recipe = vorlen.Recipe.new("AlInGaN", delta="8 mm", pressure="300 mbar", description=__doc__)
    recipe.template("GaN", "300 um", dislocations="1e6 cm^-2", name="GaN substrate", duration="10 min", growth_rate=0)

    recipe.grow("n-GaN", "10 min", T="1050 degC", TMGa="120 umol/min", NH3="8 slm", H2="8 slm")
    recipe.grow("n-AlGaN cladding", "20 min", TMAl="7 umol/min")
    recipe.grow("n-GaN cover", "10 s", TMAl=0)
    recipe.pause("2 min", "change to nitrogen", T=("1050 degC", "820 degC"), H2=("8 slm", 0), N2=(0, "8 slm"))

    recipe.grow("lower InGaN waveguide", "30.5 min", TMGa=0, TEGa="25 umol/min", TMIn="1.75 umol/min")
    with recipe.periods(2):
        recipe.grow("GaN barrier", "185 s", TMIn=0)
        recipe.pause("40 s", "cooling", T=("820 degC", "770 degC"))
        recipe.grow("InGaN well", "62 s", TMIn="6.3 umol/min")
        recipe.grow("GaN cap", "30 s", TMIn=0)
        recipe.pause("40 s", "heating", T=("770 degC", "820 degC"))
    recipe.grow("last GaN barrier", "185 s")
    recipe.grow("upper InGaN waveguide", "30.5 min", TMIn="1.75 umol/min")
    recipe.grow("GaN cap", "120 s", TMIn=0)

    recipe.pause("2 min", "change to hydrogen", T=("820 degC", "1000 degC"), N2=("8 slm", 0), H2=(0, "8 slm"))
    recipe.grow("p-AlGaN blocking layer", "46 s", TEGa=0, TMGa="60 umol/min", TMAl="12.3 umol/min")
    recipe.grow("p-AlGaN cladding", "29 min", TMAl="3.5 umol/min")
    recipe.grow("p-GaN contact", "150 s", TMAl=0)
    return recipe


if __name__ == "__main__":
    build().save("laser.xml")
