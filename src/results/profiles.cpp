// The numbers of the result file: thickness of each active stage, and the data rows. A row describes one depth and the
// moment at which that depth was the surface. Columns (t) are the surface at that moment, with the V-defect density of
// that moment; columns (z) are the same depth in the finished structure, with the final density.
#include "results/profiles.h"

#include <memory>

#include "model/constants.h"
#include "results/columns.h"
#include "results/number_format.h"

namespace vorlen {

namespace {

// Rows are collected in a block, which goes to the output when the next row might not fit: the larger the block, the
// less time the system takes for the file. Each column is followed by a blank, and the row by the end of the line.
constexpr std::size_t WRITE_BLOCK = 1 << 20;  // bytes
constexpr std::size_t COLUMNS_MAX = N_RESULT_COLUMNS + N_SURFACE_COLUMNS + N_RELAXATION_COLUMNS;
constexpr std::size_t ROW_MAX = COLUMNS_MAX * (ROW_FORMAT_MAX + 1) + 1;

}  // namespace

void sum_stage_thicknesses(SurfChemNonst& m) {
  if (m.active_stages.empty()) return;
  const History& history = m.history;
  const std::size_t last = m.active_stages.size() - 1;
  std::size_t k = 0;
  for (std::size_t i = 1; i < history.t.size(); ++i) {
    StageRecord& stage = m.active_stages[k];
    const double t_now = history.t[i];
    const double dt = t_now - history.t[i - 1];
    const double dz = (history.z[i] - history.z[i - 1]) * M_TO_NM;
    if (t_now <= stage.time.end) {
      stage.thickness += dz;
      continue;
    }
    // The step crosses a boundary: its growth is divided in proportion to time.
    stage.thickness += (stage.time.end - history.t[i - 1]) * dz / dt;
    while (k < last) {
      StageRecord& next = m.active_stages[++k];
      if (t_now <= next.time.end) {
        next.thickness += (t_now - next.time.val) * dz / dt;
        break;
      }
      next.thickness += dz * next.tau / dt;
    }
  }
}

void write_profile(SurfChemNonst& m) {
  if (m.active_stages.empty()) return;
  const History& history = m.history;
  const bool relaxes = m.stress_model == STRESS_V_dislocation;
  const std::size_t last = m.active_stages.size() - 1;
  std::size_t k = 0;
  double a_t = m.a_ref;
  double a_z = a_t;
  double rho_t = 0.0;
  double z0_nm = 0.0;
  const auto block = std::make_unique_for_overwrite<char[]>(WRITE_BLOCK);
  char* end = block.get();
  const auto write_block = [&] {
    m.out.write(block.get(), static_cast<std::size_t>(end - block.get()));
    end = block.get();
  };
  ColumnWriter columns, concentrations, relaxation;
  for (std::size_t i = 0; i < history.t.size(); ++i) {
    const double x_row[N_BULK] = {history.x_In[i], history.x_Ga[i], history.x_Al[i]};
    const double z_row = history.z[i];
    while (k < last && history.t[i] > m.active_stages[k].time.end) ++k;
    const StageRecord& stage = m.active_stages[k];
    const double a = m.lattice_a(x_row);
    double e_t, e_z, d_t, d_z;
    if (relaxes) {
      const double h_row = history.h[i];
      rho_t = history.rho_VD[i];
      z0_nm = m.z0 <= z_row ? m.z0 * M_TO_NM : 0.0;
      e_t = m.eps_in_plane(a, rho_t, z_row, h_row);
      a_t = (e_t + 1.0) * a;
      e_z = m.eps_in_plane(a, m.rho_VD, z_row, h_row);
      a_z = (e_z + 1.0) * a;
      d_t = m.rho_TD_at(rho_t, z_row, h_row);
      d_z = m.rho_TD_at(m.rho_VD, z_row, h_row);
    } else {
      e_t = e_z = m.eps_in_plane(a, 0.0, z_row, 0.0);
      d_t = d_z = interpolate(stage.rho_D, (history.t[i] - stage.time.val) / stage.tau);
    }
    const double q = -2.0 * m.strain_ratio(x_row);
    end = columns.write_row(
        end, {history.t[i], z_row * M_TO_NM, history.Vg[i] * M_TO_NM, x_row[0], x_row[1], x_row[2], d_t,
              (rho_t + rho_t) * M2_TO_CM2, a_t, e_t, e_t, e_t * q, 0.0, d_z, a_z, e_z, e_z, e_z * q, 0.0});
    *end++ = ' ';
    if (m.detail_output) {
      end = concentrations.write_row(end, {x_row[0] + x_row[1] + x_row[2], history.c_In[i], history.c_Ga[i],
                                           history.c_Al[i], history.c_N[i], history.c_H[i]});
      *end++ = ' ';
      if (relaxes) {
        const bool has_integrals = i < history.I0.size();
        end = relaxation.write_row(
            end, {z0_nm, history.rho_VD[i], history.K1[i], history.h[i] * M_TO_NM, has_integrals ? history.I0[i] : 0.0,
                  has_integrals ? history.I1[i] * ENERGY_SCALE : 0.0, has_integrals ? history.J0_0[i] : 0.0,
                  has_integrals ? history.J0_1[i] : 0.0, history.J0[i], history.J1[i], history.J2[i], history.deltaE[i],
                  history.E_V_loop[i], history.r[i]});
      }
    }
    *end++ = '\n';
    if (static_cast<std::size_t>(end - block.get()) > WRITE_BLOCK - ROW_MAX) write_block();
  }
  write_block();
}

void write_stage_rows(SurfChemNonst& m, const std::vector<PrePostStageRecord>& stages, double z_start_nm,
                      double rho_VD) {
  std::string text;
  const auto append_row = [&](const PrePostStageRecord& s, double time, double depth) {
    const double x_solid[N_BULK] = {s.X_In_average, s.X_Ga_average, s.X_Al_average};
    const double e_zz = m.strain_ratio(x_solid) * -2.0 * s.eps_xx;
    append_columns(text, {time, depth, s.GR_average, s.X_In_average, s.X_Ga_average, s.X_Al_average, s.rho_D,
                          (rho_VD + rho_VD) * M2_TO_CM2, s.a_lattice, s.eps_xx, s.eps_xx, e_zz, 0.0, s.rho_D,
                          s.a_lattice, s.eps_xx, s.eps_xx, e_zz, 0.0});
    if (m.detail_output) {
      text += ' ';
      append_columns(text, {1.0, 0.0, 0.0, 0.0, 0.0, 0.0});
      if (m.stress_model == STRESS_V_dislocation) {
        text += ' ';
        append_columns(text, {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0});
      }
    }
    text += '\n';
  };
  double depth = z_start_nm;
  for (const PrePostStageRecord& s : stages) {
    append_row(s, s.time.val, depth);
    depth += s.thickness;
    append_row(s, s.time.end, depth);
  }
  m.out.write(text.data(), text.size());
}

}  // namespace vorlen
