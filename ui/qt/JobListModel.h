// The job list's rows as the window's table shows them: six columns with
// their headings, and each row's status image in the first column. It keeps
// a copy of each row, taken on the display's thread when the row changes.
#pragma once

#include <QAbstractTableModel>
#include <QIcon>
#include <vector>

#include "ui/JobList.h"

namespace tarnvel::qt {

class JobListModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  static constexpr int kImageSize = 24;

  explicit JobListModel(const JobList& list, QObject* parent = nullptr);

  // A row was added or written: new rows are inserted, others repainted.
  void RowChanged(std::uint32_t row);
  // Takes every row again (after Clear List).
  void Reload();

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  // The five status images, cut from their strip.
  static std::vector<QIcon> StatusImages();

 private:
  const JobList& list_;
  std::vector<JobRow> rows_;
  std::vector<QIcon> images_;
};

}  // namespace tarnvel::qt
