#include "ui/qt/JobListModel.h"

#include <QPixmap>

#include "ui/Texts.h"

namespace tarnvel::qt {

JobListModel::JobListModel(const JobList& list, QObject* parent)
    : QAbstractTableModel(parent), list_(list), images_(StatusImages()) {}

std::vector<QIcon> JobListModel::StatusImages() {
  const QPixmap strip(":/tarnvel/status.png");
  std::vector<QIcon> images;
  for (int i = 0; i < 5; ++i) images.emplace_back(strip.copy(i * kImageSize, 0, kImageSize, kImageSize));
  return images;
}

void JobListModel::RowChanged(std::uint32_t row) {
  const std::size_t count = list_.RowCount();
  if (row >= count) return;  // cleared meanwhile
  if (row >= rows_.size()) {
    beginInsertRows({}, static_cast<int>(rows_.size()), static_cast<int>(row));
    while (rows_.size() <= row) rows_.push_back(list_.Row(static_cast<std::uint32_t>(rows_.size())));
    endInsertRows();
    return;
  }
  rows_[row] = list_.Row(row);
  emit dataChanged(index(static_cast<int>(row), 0), index(static_cast<int>(row), kProgressColumn));
}

void JobListModel::Reload() {
  beginResetModel();
  rows_.clear();
  for (std::uint32_t row = 0; row < list_.RowCount(); ++row) rows_.push_back(list_.Row(row));
  endResetModel();
}

int JobListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int JobListModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 6; }

QVariant JobListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount() || index.column() >= 6) return {};
  const JobRow& row = rows_[static_cast<std::size_t>(index.row())];
  if (role == Qt::DisplayRole) return QString::fromStdString(row.cells[static_cast<std::size_t>(index.column())]);
  if (role == Qt::DecorationRole && index.column() == kFolderColumn && row.image >= 0 &&
      row.image < static_cast<int>(images_.size()))
    return images_[static_cast<std::size_t>(row.image)];
  if (role == Qt::ToolTipRole && index.column() == kFolderColumn) return QString::fromStdString(row.path);
  return {};
}

QVariant JobListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  static constexpr int kHeadings[6] = {kTextFolderHeading, kTextFileHeading,  kTextStatusHeading,
                                       kTextImagesHeading, kTextTimeHeading, kTextProgressHeading};
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= 6) return {};
  return QString::fromStdString(UiText(kHeadings[section]));
}

}  // namespace tarnvel::qt
