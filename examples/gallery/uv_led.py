"""Ultraviolet light-emitting diode: AlGaN wells between AlGaN barriers on an AlGaN template, hydrogen carrier.

Targets: n-AlGaN 1 um with 55 % aluminium; three wells of 2.5 nm with 40 %, which emit near 290 nm; barriers of 9 nm
with 55 %; an electron-blocking layer of 12 nm with 70 %; p-GaN contact 30 nm.

Everything grows at one temperature and pressure. The flow of TMGa is constant, and that of TMAl decides the
fraction of aluminium. There are no pauses: gallium evaporates at this temperature and aluminium does not, so a
pause would leave a skin of AlN.
"""
import vorlen


def build():
    recipe = vorlen.Recipe.new("AlGaN", delta="6 mm", pressure="75 mbar", description=__doc__)
    recipe.template("AlN", "3 um", dislocations="8e8 cm^-2", name="AlN template")
    recipe.template("Al0.6Ga0.4N", "500 nm", dislocations="1.5e9 cm^-2", relaxation=0.9, name="AlGaN buffer")

    recipe.grow("n-AlGaN", "36 min", T="1100 degC", TMGa="20 umol/min", TMAl="19 umol/min", NH3="2 slm", H2="10 slm")
    with recipe.periods(3):
        recipe.grow("AlGaN barrier", "19 s")
        recipe.grow("AlGaN well", "7.6 s", TMAl="9.7 umol/min")
    recipe.grow("last AlGaN barrier", "19 s", TMAl="19 umol/min")
    recipe.grow("p-AlGaN blocking layer", "17 s", TMAl="36 umol/min")
    recipe.grow("p-GaN contact", "200 s", TMAl=0)
    return recipe


if __name__ == "__main__":
    build().save("uv_led.xml")
