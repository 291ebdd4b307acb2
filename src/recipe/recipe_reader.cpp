// The reader of a parsed recipe: the walk over the table, the lists of stages, and the expansion of periodic stages.
// All functions return false to stop reading.
#include "recipe/recipe_reader.h"

#include <cstring>
#include <utility>
#include <vector>

#include "platform/classic_locale.h"
#include "recipe/read_value.h"
#include "recipe/xml_lookup.h"

namespace vorlen::recipe {

namespace {

struct Reader : ReadState {
  std::int64_t n_active_stages = 0;     // so far, periodic stages expanded
  std::int64_t periodic_names = 0;      // bytes of the names of all periods so far
  std::vector<StageRecord> sub_stages;  // of the periodic stage that is read
};

bool read_list(Reader& reader, const TiXmlElement& list, const Row& row);

bool is_read(const Reader& reader, const Row& row) {
  const Records& records = reader.records;
  if (row.condition == Condition::given) {
    if (records.stage != nullptr) return records.stage->disl_model == DISL_given;
    return records.layer != nullptr && records.layer->disl_model == DISL_given;
  }
  return asked(row.condition, records.recipe, reader.stress_known) == Asked::yes;
}

// Rows that the transport model requires in each stage.
bool is_of_transport_model(const Row& row) {
  return row.section == Section::stage && row.condition >= Condition::thick_GaN &&
         row.condition <= Condition::prescribed_rate;
}

// A missing child. The name of a stage is reported later, and only by stages with dislocations.
bool read_missing(Reader& reader, const TiXmlNode& parent, const Row& row) {
  if (row.condition == Condition::optional) return true;
  if (row.condition == Condition::name_of_layer || row.condition == Condition::name_of_stage) {
    reader.missing_name = &row;
    return true;
  }
  return report_missing(reader, parent, row, row.name);
}

bool report_missing_name(Reader& reader, const TiXmlNode& parent) {
  const Row* name = std::exchange(reader.missing_name, nullptr);
  if (name == nullptr) return true;
  // The stage is the parent, or that of the container dislocations.
  const TiXmlNode& stage = std::strcmp(parent.Value(), "dislocations") == 0 ? *parent.Parent() : parent;
  return report_missing(reader, stage, *name, name->name);
}

bool read_section(Reader& reader, const TiXmlNode& parent, Section section);

bool read_child(Reader& reader, const TiXmlNode& parent, const Row& row) {
  const TiXmlElement* child = parent.FirstChildElement(row.name);
  if (child == nullptr && !read_missing(reader, parent, row)) return false;
  const bool name_is_due = row.reports_missing_name && (child == nullptr || row.kind == Kind::keyword);
  if (name_is_due && !report_missing_name(reader, parent)) return false;
  if (child == nullptr) return true;
  if (reader.sink.element != nullptr) reader.sink.element(reader.sink.context, *child, row, row.children);
  if (row.kind == Kind::container) return read_section(reader, *child, row.children);
  if (!read_value(reader, *child, row)) return false;
  const char* fault = row.also != nullptr ? row.also(reader.records) : nullptr;
  return fault == nullptr ||
         report(reader, FaultKind::not_allowed, parent, &row, nullptr, filled(fault, reader, *child));
}

// The children of an element, in the order of the table.
bool read_section(Reader& reader, const TiXmlNode& parent, Section section) {
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::stage_list) {
      if (!read_list(reader, *parent.ToElement(), *row)) return false;
      continue;
    }
    // read_stage has read the type of a stage before, as it decides on the section.
    if (std::strcmp(row->name, "type") == 0 || !is_read(reader, *row)) continue;
    reader.names_model = is_of_transport_model(*row);
    if (row->kind == Kind::container) reader.late = reader.late || row->condition == Condition::optional;
    if (!read_child(reader, parent, *row)) return false;
    reader.names_model = false;
  }
  return true;
}

// ---- Stages

// Reads the children of a stage into its record, which is the current one meanwhile.
template <class Record>
bool read_record(Reader& reader, const TiXmlElement& element, Section section, Record*& current, Record& record) {
  record.label = element.ValueStr();
  reader.missing_name = nullptr;
  current = &record;
  const bool go_on = read_section(reader, element, section);
  current = nullptr;
  return go_on;
}

bool read_layer(Reader& reader, const TiXmlElement& element, bool is_pre_stage) {
  ProcessRecipe& recipe = reader.records.recipe;
  PrePostStageRecord layer;
  if (!read_record(reader, element, Section::layer, reader.records.layer, layer)) return false;
  if (!is_pre_stage) {
    recipe.add_post_stage(layer);
    return true;
  }
  recipe.add_pre_stage(layer);
  const double stress_state = layer.stress_state;  // below 0 only after a fault
  if (recipe.pre_stages.size() > 1 || stress_state < 0.0 || !(stress_state < STRESS_STATE_IS_LATTICE)) return true;
  return report(
      reader, FaultKind::incomplete, *element.FirstChildElement("stress_state"),
      find_row(Section::layer, "stress_state"), "val",
      "Provide lattice constant 'a' for first pre-stage, not the relaxation degree: stress_state should be > 1");
}

bool add_active_stage(Reader& reader, const StageRecord& stage) {
  std::string ignored;  // the reader's own limits are narrower than those of the recipe
  return reader.records.recipe.add_active_stage(stage, ignored);
}

// Reads the sub-stages once and adds them n_periods times, period by period.
bool read_periodic(Reader& reader, const TiXmlElement& element) {
  const std::size_t n_faults = reader.n_faults;
  const std::int64_t n_before = reader.n_active_stages;
  reader.records.n_periods = NOT_SPECIFIED;
  reader.sub_stages.clear();
  if (!read_section(reader, element, Section::periodic)) return false;
  const std::int64_t n_periods = reader.records.n_periods;
  if (n_periods < 0) return true;

  std::vector<StageRecord>& sub_stages = reader.sub_stages;
  reader.n_active_stages = n_before + n_periods * static_cast<std::int64_t>(sub_stages.size());
  if (reader.n_active_stages > ACTIVE_STAGE_COUNT_MAX) {
    return report(reader, FaultKind::not_allowed, *element.FirstChildElement("n_periods"),
                  find_row(Section::periodic, "n_periods"), "val", "Number of active stages is greater than 1000000");
  }
  std::int64_t names_of_period = 0;  // bytes
  for (const StageRecord& stage : sub_stages) names_of_period += static_cast<std::int64_t>(stage.name.size());
  reader.periodic_names += names_of_period * n_periods;
  if (reader.periodic_names > PERIODIC_NAMES_MAX) {
    return report(reader, FaultKind::not_allowed, element, nullptr, nullptr,
                  "Names of all periods take more than 256 MiB: " + element_full_name(&element));
  }
  if (reader.n_faults != n_faults) return true;
  for (std::int32_t period = 1; period <= n_periods; ++period) {
    for (StageRecord& stage : sub_stages) {
      stage.period = period;
      if (!add_active_stage(reader, stage)) return false;
    }
  }
  return true;
}

// The type of a stage, which may be missing. One with a fault is that which the other children suggest.
bool read_type(Reader& reader, const TiXmlElement& element, const TiXmlElement* type) {
  reader.records.stage_type = STAGE_single;
  if (type == nullptr) return true;
  const std::size_t n_faults = reader.n_faults;
  const Row& row = *find_row(Section::stage, "type");
  if (reader.sink.element != nullptr) reader.sink.element(reader.sink.context, *type, row, Section::none);
  if (!read_value(reader, *type, row)) return false;
  if (reader.n_faults != n_faults && element.FirstChildElement("n_periods") != nullptr) {
    reader.records.stage_type = STAGE_periodic;
  }
  return true;
}

bool read_stage(Reader& reader, const TiXmlElement& element, const Row& list_row) {
  const std::size_t n_faults = reader.n_faults;
  const bool is_sub_stage = list_row.section == Section::periodic;
  const TiXmlElement* type = element.FirstChildElement("type");
  if (!read_type(reader, element, type)) return false;
  if (reader.records.stage_type == STAGE_periodic) {
    if (is_sub_stage) {
      return report(reader, FaultKind::nested_periodic, *type, &list_row, "val",
                    "Nested periodic stages are not supported: " + element_full_name(type));
    }
    if (reader.sink.element != nullptr) {
      reader.sink.element(reader.sink.context, element, list_row, Section::periodic);
    }
    return read_periodic(reader, element);
  }

  StageRecord stage;
  if (!read_record(reader, element, Section::stage, reader.records.stage, stage)) return false;
  ++reader.n_active_stages;
  if (reader.sink.stage != nullptr) reader.sink.stage(reader.sink.context, element, stage);
  if (is_sub_stage) {
    reader.sub_stages.push_back(std::move(stage));
    return true;
  }
  return reader.n_faults != n_faults || add_active_stage(reader, stage);
}

// The stages of a list. Their number has been read before; with a faulty one, all that follow each other are read.
bool read_list(Reader& reader, const TiXmlElement& list, const Row& row) {
  // Sub-stages are named after their periodic stage: stage_2_1.
  const std::string prefix =
      row.section == Section::periodic ? list.ValueStr() + "_" : std::string(row.name, std::strlen(row.name) - 1);
  const ChildIndex index(list);
  const auto stage_at = [&](std::int32_t number) { return index.find(prefix + std::to_string(number)); };
  std::int32_t count = std::exchange(reader.records.n_stages, NOT_SPECIFIED);
  if (count == NOT_SPECIFIED) {
    for (count = 0; stage_at(count + 1) != nullptr; ++count) {
    }
  }
  bool in_gap = false;
  for (std::int32_t number = 1; number <= count; ++number) {
    const TiXmlElement* element = stage_at(number);
    // One fault for each gap: a wrong number would give thousands.
    if (element == nullptr && !in_gap &&
        !report_missing(reader, list, row, (prefix + std::to_string(number)).c_str())) {
      return false;
    }
    in_gap = element == nullptr;
    if (in_gap) continue;
    if (reader.sink.element != nullptr) reader.sink.element(reader.sink.context, *element, row, row.children);
    const bool go_on = row.children == Section::layer ? read_layer(reader, *element, row.section == Section::pre_stages)
                                                      : read_stage(reader, *element, row);
    if (!go_on) return false;
  }
  return true;
}

}  // namespace

bool read_document(const TiXmlDocument& document, ProcessRecipe& recipe, const FaultSink& sink) {
  const ClassicLocaleScope classic_locale;
  Reader reader{ReadState{.sink = sink, .records = {.recipe = recipe}}, 0, 0, {}};
  return read_section(reader, document, Section::document);
}

}  // namespace vorlen::recipe
